#pragma once

#include "client/measurement.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessary::ctl {

/// Inter-arrival times as a picture: their histogram above, their course below, figures in the title.
struct Plot
{
    std::string title;
    std::vector<std::int64_t> times; ///< microseconds, oldest first
};

/// Both throw Failure LocalFile when the file can not be written.
void writePng(const Plot& plot, const std::string& path);
void writeSvg(const Plot& plot, const std::string& path);

/// "n 1024, mean 1.05 ms, ..." in one line.
std::string statisticsLine(const client::InterArrivalStatistics& statistics);

/// The histogram as text, at most `width` columns wide, one bar a line.
std::string textHistogram(const std::vector<std::int64_t>& times, std::size_t bins, std::size_t width);

} // namespace tessary::ctl
