#include "client/tessaryctl/plot.h"

#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/marks.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <cairo-svg.h>
#include <cairo.h>
#include <cmath>
#include <memory>

namespace tessary::ctl {

namespace {

constexpr int pictureWidth = 900;
constexpr int pictureHeight = 620;
constexpr std::size_t pictureBins = 60;

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Canvas = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

/// A part of the picture with axes: values to points.
struct Frame
{
    double left, top, width, height;
    double xFrom, xTo, yFrom, yTo;

    double x(double value) const { return left + (value - xFrom) / (xTo - xFrom) * width; }
    double y(double value) const { return top + height - (value - yFrom) / (yTo - yFrom) * height; }
};

void write(cairo_t* canvas, double x, double y, const std::string& text, double size, double align)
{
    cairo_set_font_size(canvas, size);
    cairo_text_extents_t extents{};
    cairo_text_extents(canvas, text.c_str(), &extents);
    cairo_move_to(canvas, x - extents.x_advance * align, y);
    cairo_show_text(canvas, text.c_str());
}

void drawAxes(cairo_t* canvas, const Frame& frame, bool xIsTime)
{
    cairo_set_line_width(canvas, 1);
    const double yStep = markDistance(frame.yTo - frame.yFrom, 5);
    for (long mark = firstMark(frame.yFrom, yStep); static_cast<double>(mark) * yStep <= frame.yTo; ++mark) {
        const double value = static_cast<double>(mark) * yStep;
        cairo_set_source_rgb(canvas, 0.88, 0.88, 0.88);
        cairo_move_to(canvas, frame.left, frame.y(value));
        cairo_line_to(canvas, frame.left + frame.width, frame.y(value));
        cairo_stroke(canvas);
        cairo_set_source_rgb(canvas, 0.25, 0.25, 0.25);
        write(canvas, frame.left - 8, frame.y(value) + 4,
            xIsTime ? fixed(value, yStep < 1 ? 1 : 0) : microsecondsText(value), 12, 1);
    }
    const double xStep = markDistance(frame.xTo - frame.xFrom, 6);
    cairo_set_source_rgb(canvas, 0.25, 0.25, 0.25);
    for (long mark = firstMark(frame.xFrom, xStep); static_cast<double>(mark) * xStep <= frame.xTo; ++mark) {
        const double value = static_cast<double>(mark) * xStep;
        cairo_move_to(canvas, frame.x(value), frame.top + frame.height);
        cairo_line_to(canvas, frame.x(value), frame.top + frame.height + 5);
        cairo_stroke(canvas);
        write(canvas, frame.x(value), frame.top + frame.height + 19,
            xIsTime ? microsecondsText(value) : fixed(value, 0), 12, 0.5);
    }
    cairo_rectangle(canvas, frame.left, frame.top, frame.width, frame.height);
    cairo_stroke(canvas);
}

void drawHistogram(cairo_t* canvas, const std::vector<std::int64_t>& times)
{
    const auto bins = client::histogramOf(times, pictureBins);
    std::size_t most = 1;
    for (const auto& bin : bins)
        most = std::max(most, bin.count);
    // The bar of the outliers is as wide as the others; its height is what counts.
    const auto width = static_cast<double>(bins.front().to - bins.front().from);
    const double end = bins.back().outliers ? static_cast<double>(bins.back().from) + width
                                            : static_cast<double>(bins.back().to);
    const Frame frame{
        80, 80, 780, 220, static_cast<double>(bins.front().from), end, 0, static_cast<double>(most) * 1.05};
    drawAxes(canvas, frame, true);
    for (const auto& bin : bins) {
        const double left = frame.x(static_cast<double>(bin.from));
        const double right = frame.x(static_cast<double>(bin.from) + width);
        cairo_set_source_rgb(
            canvas, bin.outliers ? 0.80 : 0.12, bin.outliers ? 0.25 : 0.42, bin.outliers ? 0.15 : 0.70);
        const double top = frame.y(static_cast<double>(bin.count));
        cairo_rectangle(canvas, left, top, std::max(right - left - 1, 0.5), frame.top + frame.height - top);
        cairo_fill(canvas);
    }
    cairo_set_source_rgb(canvas, 0.1, 0.1, 0.1);
    write(canvas, frame.left, frame.top - 8, "frames by inter-arrival time", 13, 0);
    if (bins.back().outliers)
        write(canvas, frame.left + frame.width, frame.top - 8,
            std::to_string(bins.back().count) + " longer, up to "
                + microsecondsText(static_cast<double>(bins.back().to - 1)),
            12, 1);
}

void drawCourse(cairo_t* canvas, const std::vector<std::int64_t>& times)
{
    const auto [shortest, longest] = std::minmax_element(times.begin(), times.end());
    const double low = std::min<double>(static_cast<double>(*shortest), 0);
    const double high = std::max(static_cast<double>(*longest), low + 1) * 1.05;
    const Frame frame{80, 360, 780, 210, 0, std::max(static_cast<double>(times.size() - 1), 1.0), low, high};
    drawAxes(canvas, frame, false);
    cairo_set_source_rgb(canvas, 0.12, 0.42, 0.70);
    for (std::size_t i = 0; i < times.size(); ++i)
        cairo_line_to(canvas, frame.x(static_cast<double>(i)), frame.y(static_cast<double>(times[i])));
    cairo_stroke(canvas);
    cairo_set_source_rgb(canvas, 0.1, 0.1, 0.1);
    write(canvas, frame.left, frame.top - 8, "inter-arrival time, frame by frame", 13, 0);
}

void draw(cairo_surface_t* surface, const Plot& plot)
{
    const Canvas canvas(cairo_create(surface), &cairo_destroy);
    cairo_set_source_rgb(canvas.get(), 1, 1, 1);
    cairo_paint(canvas.get());
    cairo_select_font_face(canvas.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_source_rgb(canvas.get(), 0.1, 0.1, 0.1);
    write(canvas.get(), 80, 30, plot.title, 16, 0);
    write(canvas.get(), 80, 50, statisticsLine(client::statisticsOf(plot.times)), 12, 0);
    drawHistogram(canvas.get(), plot.times);
    drawCourse(canvas.get(), plot.times);
}

void check(cairo_status_t status, const std::string& path)
{
    if (status != CAIRO_STATUS_SUCCESS)
        throw Failure(ExitCode::LocalFile, "cannot write " + path + ": " + cairo_status_to_string(status),
            "name a file in a folder that you may write to");
}

} // namespace

void writePng(const Plot& plot, const std::string& path)
{
    const Surface surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, pictureWidth, pictureHeight), &cairo_surface_destroy);
    draw(surface.get(), plot);
    check(cairo_surface_write_to_png(surface.get(), path.c_str()), path);
}

void writeSvg(const Plot& plot, const std::string& path)
{
    const Surface surface(
        cairo_svg_surface_create(path.c_str(), pictureWidth, pictureHeight), &cairo_surface_destroy);
    check(cairo_surface_status(surface.get()), path);
    draw(surface.get(), plot);
    cairo_surface_finish(surface.get());
    check(cairo_surface_status(surface.get()), path);
}

std::string statisticsLine(const client::InterArrivalStatistics& s)
{
    const auto text = [](std::int64_t value) { return microsecondsText(static_cast<double>(value)); };
    return std::to_string(s.count) + " frames: mean " + microsecondsText(s.mean) + ", deviation "
        + microsecondsText(s.deviation) + ", " + text(s.shortest) + " to " + text(s.longest) + ", median "
        + text(s.median) + ", 95 % " + text(s.percentile95) + ", 99 % " + text(s.percentile99);
}

std::string textHistogram(const std::vector<std::int64_t>& times, std::size_t bins, std::size_t width)
{
    constexpr std::size_t labelWidth = 24;
    constexpr std::size_t countWidth = 6;
    const auto histogram = client::histogramOf(times, bins);
    std::size_t most = 1;
    for (const auto& bin : histogram)
        most = std::max(most, bin.count);
    const std::size_t room = width > labelWidth + countWidth + 12 ? width - labelWidth - countWidth - 2 : 10;
    std::string text;
    for (const auto& bin : histogram) {
        const std::string range = microsecondsText(static_cast<double>(bin.from))
            + (bin.outliers ? " … " : " – ") + microsecondsText(static_cast<double>(bin.to));
        const std::string count = std::to_string(bin.count);
        text.append(displayWidth(range) < labelWidth ? labelWidth - displayWidth(range) : 0, ' ')
            .append(range);
        text.append(count.size() < countWidth ? countWidth - count.size() : 0, ' ')
            .append(count)
            .append("  ");
        text.append(bar(static_cast<double>(bin.count) / static_cast<double>(most), room)).append("\n");
    }
    return text;
}

} // namespace tessary::ctl
