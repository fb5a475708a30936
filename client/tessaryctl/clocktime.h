#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tessary::ctl {

using WallTime = std::chrono::system_clock::time_point;

/// Date and time of this machine's zone with the zone's distance from UTC, after ISO 8601:
/// "2026-03-29T01:59:59.250+01:00".
std::string isoTime(WallTime time);

/// Reads what isoTime() writes, also without fraction and with "Z"; nothing for anything else.
std::optional<WallTime> parseIsoTime(const std::string& text);

/// Time in this machine's zone in a pattern of strftime(), such as "%H:%M:%S".
std::string localTime(WallTime time, const char* pattern);

/// Seconds since 1970.
double secondsOf(WallTime time);
/// To the millisecond.
WallTime wallTimeOf(double seconds);

} // namespace tessary::ctl
