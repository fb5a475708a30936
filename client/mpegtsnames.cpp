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

constexpr Name streamTypes[] = {
    {0x01, "MPEG-1 video"},
    {0x02, "MPEG-2 video"},
    {0x03, "MPEG-1 audio"},
    {0x04, "MPEG-2 audio"},
    {0x05, "private sections"},
    {0x06, "private PES"},
    {0x0b, "DSM-CC U-N"},
    {0x0c, "DSM-CC stream descriptors"},
    {0x0d, "DSM-CC sections"},
    {0x0f, "AAC audio"},
    {0x10, "MPEG-4 video"},
    {0x11, "AAC LATM audio"},
    {0x15, "metadata PES"},
    {0x1b, "H.264 video"},
    {0x21, "JPEG 2000 video"},
    {0x24, "H.265 video"},
    {0x42, "AVS video"},
    {0x81, "AC-3 audio (ATSC)"},
    {0x87, "E-AC-3 audio (ATSC)"},
};

constexpr Name serviceTypes[] = {
    {0x01, "digital television"},
    {0x02, "digital radio"},
    {0x03, "teletext"},
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

// What is in private PES, by a descriptor's tag.
constexpr Name privateStreams[] = {
    {0x45, "VBI data"},
    {0x46, "VBI teletext"},
    {0x56, "teletext"},
    {0x59, "subtitles"},
    {0x6a, "AC-3 audio"},
    {0x7a, "E-AC-3 audio"},
    {0x7b, "DTS audio"},
    {0x7c, "AAC audio"},
};
constexpr std::uint8_t privatePes = 0x06;
constexpr std::uint8_t extensionDescriptor = 0x7f;
constexpr std::uint8_t ac4Extension = 0x15;

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

std::string streamTypeName(std::uint8_t streamType)
{
    return lookUp(streamTypes, streamType);
}

std::string streamName(const ProgramMap::Stream& stream)
{
    if (stream.type != privatePes)
        return streamTypeName(stream.type);
    for (const Descriptor& descriptor : stream.descriptors) {
        if (descriptor.tag == extensionDescriptor && !descriptor.data.empty()
            && descriptor.data[0] == ac4Extension)
            return "AC-4 audio";
        for (const Name& name : privateStreams) {
            if (name.value == descriptor.tag)
                return name.text;
        }
    }
    return streamTypeName(stream.type);
}

std::string runningStatusName(std::uint8_t runningStatus)
{
    return lookUp(runningStatuses, runningStatus);
}

std::string serviceTypeName(std::uint8_t serviceType)
{
    return lookUp(serviceTypes, serviceType);
}

} // namespace tessary::client
