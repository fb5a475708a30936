#include "client/tessaryctl/clocktime.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace tessary::ctl {

namespace {

constexpr int secondsPerMinute = 60;
constexpr int secondsPerHour = 3600;

std::tm partsOf(std::time_t seconds)
{
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    return parts;
}

std::string zoneText(long east)
{
    const long minutes = std::labs(east) / secondsPerMinute;
    std::array<char, 32> text{};
    std::snprintf(
        text.data(), text.size(), "%c%02ld:%02ld", east < 0 ? '-' : '+', minutes / 60, minutes % 60);
    return text.data();
}

/// Seconds east of UTC of "+02:00" or "Z".
std::optional<long> parseZone(const std::string& text)
{
    if (text == "Z")
        return 0;
    char sign = 0;
    int hours = 0;
    int minutes = 0;
    int length = 0;
    if (std::sscanf(text.c_str(), "%c%2d:%2d%n", &sign, &hours, &minutes, &length) != 3
        || length != static_cast<int>(text.size()) || (sign != '+' && sign != '-'))
        return std::nullopt;
    const long east = hours * secondsPerHour + minutes * secondsPerMinute;
    return sign == '-' ? -east : east;
}

} // namespace

double secondsOf(WallTime time)
{
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

WallTime wallTimeOf(double seconds)
{
    return WallTime(std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(seconds)));
}

std::string localTime(WallTime time, const char* pattern)
{
    const std::tm parts = partsOf(static_cast<std::time_t>(std::floor(secondsOf(time))));
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), pattern, &parts);
    return text.data();
}

std::string isoTime(WallTime time)
{
    using std::chrono::milliseconds;
    const auto all = std::chrono::floor<milliseconds>(time.time_since_epoch());
    const auto whole = std::chrono::floor<std::chrono::seconds>(all);
    std::array<char, 8> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>((all - whole).count()));
    return localTime(WallTime(whole), "%Y-%m-%dT%H:%M:%S") + fraction.data()
        + zoneText(partsOf(static_cast<std::time_t>(whole.count())).tm_gmtoff);
}

std::optional<WallTime> parseIsoTime(const std::string& text)
{
    std::tm parts{};
    const char* at = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (at == nullptr)
        return std::nullopt;
    double fraction = 0;
    if (*at == '.') {
        char* end = nullptr;
        fraction = std::strtod(at, &end);
        at = end;
    }
    const auto east = parseZone(at);
    if (!east.has_value())
        return std::nullopt;
    return wallTimeOf(static_cast<double>(::timegm(&parts) - *east) + fraction);
}

} // namespace tessary::ctl
