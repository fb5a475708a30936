#pragma once

#include "client/tessaryctl/logsummary.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tessary::ctl {

/// What all charts of a page have in common: their time, and where in it there are no figures.
struct TimeAxis
{
    double from; ///< seconds since 1970
    double to;
    const std::vector<Span>& spans;
};

/// A value at a time.
struct TimePoint
{
    double time; ///< seconds since 1970
    double value;
};

struct TimeSeries
{
    std::string style; ///< class of the page's style sheet
    std::vector<TimePoint> points; ///< by time
};

struct TimeChart
{
    std::string title; ///< for those who can not see it
    std::vector<TimeSeries> series; ///< the first is drawn first
    bool bars = false; ///< sums, not lines
    bool logarithmic = false;
    std::optional<double> limit; ///< a line across
    std::function<std::string(double)> label; ///< of the values
};

/// SVG, one column of the picture a value: of lines the smallest and the largest of the column are kept, of
/// bars the sum. Its size does not grow with the number of points.
std::string svgOf(const TimeChart& chart, const TimeAxis& axis);

/// The stream's presence as a coloured strip.
std::string presenceStrip(const TimeAxis& axis);

/// Seconds that a column of the picture stands for.
double secondsPerColumn(const TimeAxis& axis);

/// Class of the page's style sheet for a stretch without figures.
const char* styleOf(Span::Kind kind);

} // namespace tessary::ctl
