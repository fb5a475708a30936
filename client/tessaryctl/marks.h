#pragma once

namespace tessary::ctl {

/// A round distance between the marks of an axis: 1, 2 or 5 times a power of ten, about `count` of them.
double markDistance(double span, int count);

/// Number of the first mark at or after `from`.
long firstMark(double from, double step);

} // namespace tessary::ctl
