#include "client/tessaryctl/marks.h"

#include <algorithm>
#include <cmath>

namespace tessary::ctl {

double markDistance(double span, int count)
{
    const double raw = std::max(span, 1e-9) / count;
    const double power = std::pow(10, std::floor(std::log10(raw)));
    const double factor = raw / power;
    return power * (factor < 1.5 ? 1 : factor < 3.5 ? 2 : factor < 7.5 ? 5 : 10);
}

long firstMark(double from, double step)
{
    return std::lround(std::ceil(from / step));
}

} // namespace tessary::ctl
