#include "client/tessaryctl/timechart.h"

#include "client/tessaryctl/marks.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace tessary::ctl {

namespace {

// In units of the picture; its width on the page is that of the page.
constexpr int left = 74;
constexpr int columns = 900;
constexpr int top = 10;
constexpr int plotHeight = 150;
constexpr int axisHeight = 24;
constexpr int pictureWidth = left + columns + 26;

/// Rows come a little more than a second apart: further apart there is something missing between them.
constexpr double longestDistance = 4;

std::string number(double value)
{
    std::string text = fixed(value, 1);
    if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0)
        text.resize(text.size() - 2);
    return text;
}

std::string attribute(const char* name, double value)
{
    return " " + std::string(name) + "=\"" + number(value) + "\"";
}

std::string line(const char* style, double x1, double y1, double x2, double y2)
{
    return "<line class=\"" + std::string(style) + "\"" + attribute("x1", x1) + attribute("y1", y1)
        + attribute("x2", x2) + attribute("y2", y2) + "/>";
}

std::string label(const char* style, double x, double y, const std::string& text)
{
    return "<text class=\"" + std::string(style) + "\"" + attribute("x", x) + attribute("y", y) + ">" + text
        + "</text>";
}

double xOf(const TimeAxis& axis, double time)
{
    return left + (time - axis.from) / std::max(axis.to - axis.from, 1.0) * columns;
}

/// The points of one column of the picture.
struct Column
{
    std::size_t index;
    double least, most, sum;
    double first, last; ///< times
};

std::vector<Column> columnsOf(const std::vector<TimePoint>& points, const TimeAxis& axis)
{
    std::vector<Column> found;
    for (const TimePoint& point : points) {
        const double x = std::clamp(xOf(axis, point.time) - left, 0.0, columns - 1.0);
        const auto index = static_cast<std::size_t>(x);
        if (found.empty() || found.back().index != index) {
            found.push_back({index, point.value, point.value, point.value, point.time, point.time});
            continue;
        }
        Column& column = found.back();
        column.least = std::min(column.least, point.value);
        column.most = std::max(column.most, point.value);
        column.sum += point.value;
        column.last = point.time;
    }
    return found;
}

/// Values to heights.
struct Scale
{
    double from, to;
    bool logarithmic;

    double y(double value) const
    {
        const double share = logarithmic ? std::log(std::max(value, from) / from) / std::log(to / from)
                                         : (value - from) / (to - from);
        return top + plotHeight * (1 - std::clamp(share, 0.0, 1.0));
    }
};

Scale scaleFor(const TimeChart& chart, const std::vector<std::vector<Column>>& series)
{
    double most = chart.limit.value_or(0);
    double least = chart.limit.value_or(1e300);
    for (const auto& one : series) {
        for (const Column& column : one) {
            most = std::max(most, chart.bars ? column.sum : column.most);
            least = std::min(least, std::max(column.least, 1.0));
        }
    }
    if (!chart.logarithmic)
        return {0, std::max(most * 1.08, 1.0), false};
    const double from = std::pow(10, std::floor(std::log10(std::clamp(least, 1.0, 1e9))));
    return {from, std::max(std::pow(10, std::ceil(std::log10(std::max(most, 1.0) * 1.05))), from * 10), true};
}

std::vector<double> marksOf(const Scale& scale)
{
    std::vector<double> marks;
    if (scale.logarithmic) {
        const auto decades = std::lround(std::log10(scale.to / scale.from));
        for (long i = 0; i <= decades; ++i)
            marks.push_back(scale.from * std::pow(10, i));
        return marks;
    }
    const double step = markDistance(scale.to, 4);
    for (long i = 0; static_cast<double>(i) * step <= scale.to; ++i)
        marks.push_back(static_cast<double>(i) * step);
    return marks;
}

/// A round number of seconds between the marks of the time.
double timeStep(double seconds)
{
    static constexpr std::array steps{1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800,
        21600, 43200, 86400, 172800, 604800};
    const auto* const found =
        std::find_if(steps.begin(), steps.end(), [&](int step) { return seconds / step <= 9; });
    return found == steps.end() ? markDistance(seconds, 8) : *found;
}

/// Seconds east of UTC, so that marks stand at the clock's round times.
double zoneAt(double time)
{
    const std::string zone = localTime(wallTimeOf(time), "%z");
    const int hoursAndMinutes = std::atoi(zone.c_str());
    const int minutes = hoursAndMinutes / 100 * 60 + hoursAndMinutes % 100;
    return minutes * 60.0;
}

std::string timeMarks(const TimeAxis& axis, double bottom, bool labels)
{
    const double step = timeStep(axis.to - axis.from);
    const double zone = zoneAt(axis.from);
    const char* pattern = step >= 86400 ? "%d %b" : step >= 60 ? "%H:%M" : "%H:%M:%S";
    std::string svg;
    const double first = std::ceil((axis.from + zone) / step) * step - zone;
    const auto count = static_cast<long>(std::floor((axis.to - first) / step)) + 1;
    for (long i = 0; i < count; ++i) {
        const double mark = first + static_cast<double>(i) * step;
        const double x = xOf(axis, mark);
        svg += line("grid", x, top, x, bottom);
        if (labels)
            svg += label("time", x, bottom + 17, localTime(wallTimeOf(mark), pattern));
    }
    return svg;
}

std::string shades(const TimeAxis& axis, double height)
{
    std::string svg;
    for (const Span& span : axis.spans) {
        const double from = xOf(axis, span.from);
        svg += "<rect class=\"shade " + std::string(styleOf(span.kind)) + "\"" + attribute("x", from)
            + attribute("y", top) + attribute("width", std::max(xOf(axis, span.to) - from, 2.0))
            + attribute("height", height) + "/>";
    }
    return svg;
}

bool apart(const Column& a, const Column& b, const TimeAxis& axis)
{
    const double distance = b.first - a.last;
    if (distance > std::max(longestDistance, 2 * secondsPerColumn(axis)))
        return true;
    return std::any_of(axis.spans.begin(), axis.spans.end(),
        [&](const Span& span) { return span.from < b.first && span.to > a.last && span.seconds() > 0; });
}

/// The outline of what lies between the smallest and the largest values, for columns without a break.
std::string outline(const std::vector<Column>& all, std::size_t from, std::size_t to, const Scale& scale)
{
    std::string path = "M";
    const auto point = [&](const Column& column, double value) {
        path += std::to_string(left + static_cast<int>(column.index)) + " " + number(scale.y(value)) + " ";
    };
    for (std::size_t i = from; i < to; ++i)
        point(all[i], all[i].most);
    for (std::size_t i = to; i-- > from;) // all the way back, so that the outline encloses nothing else
        point(all[i], all[i].least);
    return path;
}

std::string lines(
    const TimeSeries& series, const std::vector<Column>& all, const Scale& scale, const TimeAxis& axis)
{
    std::string path;
    std::size_t begin = 0;
    for (std::size_t i = 1; i <= all.size(); ++i) {
        if (i < all.size() && !apart(all[i - 1], all[i], axis))
            continue;
        path += outline(all, begin, i, scale);
        begin = i;
    }
    return "<path class=\"" + series.style + "\" d=\"" + path + "\"/>";
}

std::string bars(const TimeSeries& series, const std::vector<Column>& all, const Scale& scale)
{
    std::string path;
    for (const Column& column : all) {
        if (column.sum > 0)
            path += "M" + number(left + static_cast<double>(column.index) + 0.5) + " "
                + std::to_string(top + plotHeight) + "V"
                + number(std::min(scale.y(column.sum), top + plotHeight - 2.0));
    }
    return "<path class=\"" + series.style + "\" d=\"" + path + "\"/>";
}

std::string opening(const std::string& title, int height)
{
    return "<svg viewBox=\"0 0 " + std::to_string(pictureWidth) + " " + std::to_string(height)
        + "\" role=\"img\" aria-label=\"" + title + "\">";
}

} // namespace

double secondsPerColumn(const TimeAxis& axis)
{
    return (axis.to - axis.from) / columns;
}

const char* styleOf(Span::Kind kind)
{
    switch (kind) {
    case Span::Kind::Absent:
        return "absent";
    case Span::Kind::NoLink:
        return "nolink";
    case Span::Kind::NoAnswer:
        return "noanswer";
    case Span::Kind::NotLogged:
        break;
    }
    return "notlogged";
}

std::string svgOf(const TimeChart& chart, const TimeAxis& axis)
{
    constexpr int bottom = top + plotHeight;
    std::vector<std::vector<Column>> reduced;
    for (const TimeSeries& series : chart.series)
        reduced.push_back(columnsOf(series.points, axis));
    const Scale scale = scaleFor(chart, reduced);
    std::string svg = opening(chart.title, bottom + axisHeight) + shades(axis, plotHeight);
    svg += timeMarks(axis, bottom, true);
    for (const double mark : marksOf(scale)) {
        svg += line("grid", left, scale.y(mark), left + columns, scale.y(mark));
        svg += label("value", left - 8, scale.y(mark) + 4, chart.label(mark));
    }
    for (std::size_t i = 0; i < reduced.size(); ++i)
        svg += chart.bars ? bars(chart.series[i], reduced[i], scale)
                          : lines(chart.series[i], reduced[i], scale, axis);
    if (chart.limit.has_value())
        svg += line("limit", left, scale.y(*chart.limit), left + columns, scale.y(*chart.limit));
    return svg + line("axis", left, bottom, left + columns, bottom) + "</svg>\n";
}

std::string presenceStrip(const TimeAxis& axis)
{
    constexpr int height = 26;
    const double width = xOf(axis, axis.to) - left;
    return opening("presence of the stream over time", top + height + axisHeight) + "<rect class=\"present\""
        + attribute("x", left) + attribute("y", top) + attribute("width", width) + attribute("height", height)
        + "/>" + shades(axis, height) + timeMarks(axis, top + height, true) + "</svg>\n";
}

} // namespace tessary::ctl
