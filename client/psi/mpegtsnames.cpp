#include "client/psi/mpegtsnames.h"

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

constexpr Name descriptors[] = {
    {0x02, "video stream"},
    {0x03, "audio stream"},
    {0x05, "registration"},
    {0x06, "data stream alignment"},
    {0x09, "conditional access"},
    {0x0a, "language"},
    {0x0b, "system clock"},
    {0x0e, "maximum bit rate"},
    {0x10, "smoothing buffer"},
    {0x11, "STD"},
    {0x28, "AVC video"},
    {0x2a, "AVC timing and HRD"},
    {0x2b, "MPEG-2 AAC audio"},
    {0x38, "HEVC video"},
    {0x45, "VBI data"},
    {0x52, "stream identifier"},
    {0x56, "teletext"},
    {0x59, "subtitling"},
    {0x5f, "private data specifier"},
    {0x66, "data broadcast identifier"},
    {0x6a, "AC-3"},
    {0x6f, "application signalling"},
    {0x7a, "enhanced AC-3"},
    {0x7b, "DTS"},
    {0x7c, "AAC"},
    {0x7f, "extension"},
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

std::string descriptorName(std::uint8_t tag)
{
    const auto* const found = std::find_if(
        std::begin(descriptors), std::end(descriptors), [tag](const Name& n) { return n.value == tag; });
    return found == std::end(descriptors) ? "descriptor" : found->text;
}

} // namespace tessary::client
