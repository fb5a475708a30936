#include "client/mpegtsnames.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace tessary::client {

namespace {

struct Name
{
    std::uint8_t value;
    const char* text;
};

constexpr Name serviceTypes[] = {
    {0x01, "digital television"},
    {0x02, "digital radio"},
    {0x03, "teletext"},
    {0x07, "FM radio"},
    {0x0a, "advanced codec radio"},
    {0x0c, "data broadcast"},
    {0x11, "MPEG-2 HD television"},
    {0x16, "advanced codec SD television"},
    {0x19, "advanced codec HD television"},
    {0x1f, "HEVC television"},
    {0x20, "HEVC UHD television"},
};

constexpr Name runningStatuses[] = {
    {0, "undefined"},
    {1, "not running"},
    {2, "starts in a few seconds"},
    {3, "pausing"},
    {4, "running"},
    {5, "off the air"},
};

template <typename Table> std::string lookUp(const Table& table, std::uint8_t value)
{
    const auto found =
        std::find_if(std::begin(table), std::end(table), [value](const Name& n) { return n.value == value; });
    if (found != std::end(table))
        return found->text;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "type 0x%02x", static_cast<unsigned>(value));
    return text.data();
}

} // namespace

std::string runningStatusName(std::uint8_t runningStatus)
{
    return lookUp(runningStatuses, runningStatus);
}

std::string serviceTypeName(std::uint8_t serviceType)
{
    return lookUp(serviceTypes, serviceType);
}

bool isRadio(std::uint8_t serviceType)
{
    return serviceType == 0x02 || serviceType == 0x07 || serviceType == 0x0a;
}

} // namespace tessary::client
