#include "client/psi/streamkind.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string_view>

namespace tessary::client {

namespace {

using Medium = StreamKind::Medium;
using Decoding = StreamKind::Decoding;

struct Kind
{
    Medium medium;
    const char* text;
    const char* codec = "";
    Decoding decoding = Decoding::Untold;
    int code = 0;
};

constexpr Kind picture(const char* text, const char* codec, int code = 0)
{
    return {Medium::Picture, text, codec, code != 0 ? Decoding::Told : Decoding::Untold, code};
}

constexpr Kind sound(const char* text, const char* codec, int code = 0)
{
    return {Medium::Sound, text, codec, code != 0 ? Decoding::Told : Decoding::Untold, code};
}

/// The instrument's demultiplexer passes over it, or its player refuses it.
constexpr Kind unheard(const char* text, const char* codec)
{
    return {Medium::Sound, text, codec, Decoding::Never, 0};
}

/// Layer 1, 2 or 3: each has a code, which the PMT does not tell.
constexpr Kind mpegSound(const char* text)
{
    return {Medium::Sound, text, "MPEG audio", Decoding::Told, 0};
}

constexpr Kind other(const char* text)
{
    return {Medium::Other, text};
}

template <typename Key> struct Row
{
    Key key;
    Kind kind;
};

constexpr const char* spliceText = "splice information (SCTE-35)";

// stream_type. From 0x80 on each organisation has its own; these are the most used.
constexpr Row<std::uint8_t> byType[] = {
    {0x01, picture("MPEG-1 video", "MPEG-1", 1)},
    {0x02, picture("MPEG-2 video", "MPEG-2", 1)},
    {0x03, mpegSound("MPEG-1 audio")},
    {0x04, mpegSound("MPEG-2 audio")},
    {0x05, other("private sections")},
    {0x06, other("private PES")},
    {0x07, other("MHEG")},
    {0x08, other("DSM-CC")},
    {0x0a, other("multiprotocol encapsulation")},
    {0x0b, other("DSM-CC U-N")},
    {0x0c, other("DSM-CC stream descriptors")},
    {0x0d, other("DSM-CC sections")},
    {0x0f, sound("AAC audio", "AAC", 1)},
    {0x10, picture("MPEG-4 video", "MPEG-4 Visual", 3)},
    {0x11, sound("AAC LATM audio", "AAC", 1)},
    {0x12, other("MPEG-4 systems PES")},
    {0x13, other("MPEG-4 systems sections")},
    {0x14, other("DSM-CC synchronized download")},
    {0x15, other("metadata PES")},
    {0x16, other("metadata sections")},
    {0x17, other("metadata data carousel")},
    {0x18, other("metadata object carousel")},
    {0x19, other("metadata synchronized download")},
    {0x1b, picture("H.264 video", "H.264", 2)},
    {0x1c, sound("MPEG-4 audio", "MPEG-4 audio")},
    {0x1d, other("MPEG-4 timed text")},
    {0x1e, other("auxiliary video")},
    {0x1f, other("H.264 video, scalable layer")},
    {0x20, other("H.264 video, further view")},
    {0x21, picture("JPEG 2000 video", "JPEG 2000")},
    {0x22, other("MPEG-2 video, further view")},
    {0x23, other("H.264 video, further view")},
    {0x24, picture("H.265 video", "H.265", 15)},
    {0x25, other("H.265 video, temporal layer")},
    {0x27, other("timeline and external media (TEMI)")},
    {0x2d, sound("MPEG-H audio", "MPEG-H")},
    {0x2e, sound("MPEG-H audio, auxiliary", "MPEG-H")},
    {0x32, picture("JPEG XS video", "JPEG XS")},
    {0x33, picture("H.266 video", "H.266")},
    {0x34, other("H.266 video, temporal layer")},
    {0x35, picture("EVC video", "EVC")},
    {0x36, other("LCEVC enhancement")},
    {0x42, picture("AVS video", "AVS")},
    {0x81, sound("AC-3 audio (ATSC)", "AC-3", 2)},
    {0x82, unheard("DTS audio", "DTS")},
    {0x87, sound("E-AC-3 audio (ATSC)", "E-AC-3", 7)},
    {0x8a, sound("DTS audio", "DTS")},
    {0x95, other("ATSC data service")},
    {0xd1, picture("Dirac video", "Dirac")},
    {0xd2, picture("AVS2 video", "AVS2")},
    {0xd4, picture("AVS3 video", "AVS3")},
    {0xea, picture("VC-1 video", "VC-1")},
};

// stream_type in a program that is registered as "HDMV".
constexpr Row<std::uint8_t> byDiscType[] = {
    {0x80, sound("LPCM audio", "LPCM")},
    {0x81, sound("AC-3 audio", "AC-3", 2)},
    {0x82, sound("DTS audio", "DTS")},
    {0x83, sound("TrueHD audio", "TrueHD")},
    {0x84, sound("E-AC-3 audio", "E-AC-3", 7)},
    {0x85, sound("DTS-HD audio", "DTS-HD")},
    {0x86, sound("DTS-HD audio", "DTS-HD")},
    {0x90, other("subtitles")},
    {0xa1, sound("E-AC-3 audio", "E-AC-3", 7)},
    {0xa2, sound("DTS-HD audio", "DTS-HD")},
};

// Private PES and types from 0x80 on, by format_identifier of the stream's own registration_descriptor.
constexpr Row<std::string_view> byRegistration[] = {
    {"AC-3", sound("AC-3 audio", "AC-3", 2)},
    {"EAC3", sound("E-AC-3 audio", "E-AC-3", 7)},
    {"AC-4", unheard("AC-4 audio", "AC-4")},
    {"DTS1", sound("DTS audio", "DTS")},
    {"DTS2", sound("DTS audio", "DTS")},
    {"DTS3", sound("DTS audio", "DTS")},
    {"Opus", sound("Opus audio", "Opus")},
    {"BSSD", sound("SMPTE 302M audio", "SMPTE 302M")},
    {"HEVC", picture("H.265 video", "H.265", 15)},
    {"VC-1", picture("VC-1 video", "VC-1")},
    {"drac", picture("Dirac video", "Dirac")},
    {"VVC ", picture("H.266 video", "H.266")},
    {"AV01", picture("AV1 video", "AV1")},
    {"AVSV", picture("AVS video", "AVS")},
    {"dra1", sound("DRA audio", "DRA")},
    {"mlpa", sound("TrueHD audio", "TrueHD")},
    {"CUEI", other(spliceText)},
    {"KLVA", other("metadata")},
    {"ID3 ", other("ID3 metadata")},
    {"VANC", other("ancillary data (SMPTE ST 2038)")},
};

// Private PES by descriptor_tag.
constexpr Row<std::uint8_t> byDescriptor[] = {
    {0x45, other("VBI data")},
    {0x46, other("VBI teletext")},
    {0x56, other("teletext")},
    {0x59, other("subtitles")},
    {0x6a, sound("AC-3 audio", "AC-3", 2)},
    {0x7a, sound("E-AC-3 audio", "E-AC-3", 7)},
    {0x7b, unheard("DTS audio", "DTS")},
    {0x7c, sound("AAC audio", "AAC", 1)},
};

// Private PES by descriptor_tag_extension.
constexpr Row<std::uint8_t> byExtension[] = {
    {0x0e, unheard("DTS-HD audio", "DTS-HD")},
    {0x15, unheard("AC-4 audio", "AC-4")},
    {0x0f, unheard("DTS Neural audio", "DTS")},
    {0x11, other(StreamKind::t2miText)},
    {0x20, other("TTML subtitles")},
    {0x21, unheard("DTS-UHD audio", "DTS-UHD")},
};

// Private sections by descriptor_tag.
constexpr Row<std::uint8_t> bySectionDescriptor[] = {
    {0x6f, other("application information (AIT)")},
    {0x71, other("service identifier")},
    {0x66, other("data broadcast")},
};

// data_broadcast_id of private sections' data_broadcast_id_descriptor (ETSI TS 101 162).
constexpr Row<std::uint16_t> byDataBroadcast[] = {
    {0x0005, other("multiprotocol encapsulation")},
    {0x000a, other("system software update")},
    {0x000b, other("IP/MAC notification (INT)")},
};

// Private PES by data_component_id of ISDB's descriptor 0xFD (ARIB STD-B10).
constexpr Row<std::uint16_t> byDataComponent[] = {
    {0x0008, other("captions (ISDB)")},
    {0x0012, other("captions (ISDB)")},
};

constexpr std::uint8_t privateSections = 0x05;
constexpr std::uint8_t privatePes = 0x06;
constexpr std::uint8_t firstUserType = 0x80;
constexpr std::uint8_t cableSubtitlesOrDts = 0x82;
constexpr std::uint8_t spliceInformation = 0x86;
constexpr std::uint8_t dtsOfPrograms = 0x8a;
constexpr std::uint8_t registrationDescriptor = 0x05;
constexpr std::uint8_t dataBroadcastDescriptor = 0x66;
constexpr std::uint8_t extensionDescriptor = 0x7f;
constexpr std::uint8_t cueIdentifierDescriptor = 0x8a;
constexpr std::uint8_t dataComponentDescriptor = 0xfd;

template <typename Table, typename Key> const Kind* lookUp(const Table& table, const Key& key)
{
    const auto found =
        std::find_if(std::begin(table), std::end(table), [&](const auto& row) { return row.key == key; });
    return found != std::end(table) ? &found->kind : nullptr;
}

/// format_identifier of the first registration_descriptor; empty without one.
std::string registration(const std::vector<Descriptor>& descriptors)
{
    constexpr std::size_t identifierSize = 4;
    for (const Descriptor& descriptor : descriptors) {
        if (descriptor.tag == registrationDescriptor && descriptor.data.size() >= identifierSize)
            return {descriptor.data.begin(), descriptor.data.begin() + identifierSize};
    }
    return {};
}

std::optional<Kind> optionalOf(const Kind* row)
{
    return row != nullptr ? std::optional(*row) : std::nullopt;
}

std::optional<Kind> byOwnRegistration(const ProgramMap::Stream& stream, const std::string& identifier)
{
    if (stream.type != privatePes && stream.type < firstUserType)
        return std::nullopt;
    std::optional<Kind> kind = optionalOf(lookUp(byRegistration, std::string_view(identifier)));
    // DTS under another type than these two is not recognised by the demultiplexer.
    if (kind.has_value() && std::string_view(kind->codec) == "DTS" && stream.type != privatePes
        && stream.type != dtsOfPrograms)
        kind->decoding = Decoding::Never;
    return kind;
}

std::optional<Kind> byDescriptors(const ProgramMap::Stream& stream)
{
    for (const Descriptor& descriptor : stream.descriptors) {
        const bool extended = descriptor.tag == extensionDescriptor && !descriptor.data.empty();
        const Kind* row =
            extended ? lookUp(byExtension, descriptor.data[0]) : lookUp(byDescriptor, descriptor.tag);
        if (row != nullptr)
            return *row;
    }
    return std::nullopt;
}

/// By the 16 bits that begin a descriptor with this tag.
template <std::size_t size>
std::optional<Kind> byIdentifier(
    const ProgramMap::Stream& stream, std::uint8_t tag, const Row<std::uint16_t> (&table)[size])
{
    for (const Descriptor& descriptor : stream.descriptors) {
        if (descriptor.tag != tag || descriptor.data.size() < 2)
            continue;
        const auto identifier = static_cast<std::uint16_t>(descriptor.data[0] << 8U | descriptor.data[1]);
        if (const Kind* row = lookUp(table, identifier))
            return *row;
    }
    return std::nullopt;
}

std::optional<Kind> ofPrivatePes(const ProgramMap::Stream& stream)
{
    if (const auto kind = byDescriptors(stream))
        return kind;
    return byIdentifier(stream, dataComponentDescriptor, byDataComponent);
}

std::optional<Kind> ofPrivateSections(const ProgramMap::Stream& stream)
{
    if (const auto kind = byIdentifier(stream, dataBroadcastDescriptor, byDataBroadcast))
        return kind;
    for (const Descriptor& descriptor : stream.descriptors) {
        if (const Kind* row = lookUp(bySectionDescriptor, descriptor.tag))
            return *row;
    }
    return std::nullopt;
}

/// A cue_identifier_descriptor (SCTE 35, 8.2).
bool carriesCues(const ProgramMap::Stream& stream)
{
    return std::any_of(stream.descriptors.begin(), stream.descriptors.end(),
        [](const Descriptor& descriptor) { return descriptor.tag == cueIdentifierDescriptor; });
}

/// Cable television has given two types another meaning, and says so in its programs' registration.
std::optional<Kind> ofCable(const ProgramMap::Stream& stream, const std::string& program)
{
    const bool cable = program == "SCTE" || program == "CUEI" || program == "GA94";
    if (cable && stream.type == cableSubtitlesOrDts)
        return other("subtitles");
    if (stream.type == spliceInformation && (cable || carriesCues(stream)))
        return other(spliceText);
    return std::nullopt;
}

std::optional<Kind> kindIn(const ProgramMap& program, const ProgramMap::Stream& stream)
{
    const std::string programs = registration(program.descriptors);
    const std::string own = registration(stream.descriptors);
    if (programs == "HDMV") {
        if (const Kind* row = lookUp(byDiscType, stream.type))
            return *row;
    }
    if (const auto kind = byOwnRegistration(stream, own))
        return kind;
    if (stream.type == privatePes) {
        if (const auto kind = ofPrivatePes(stream))
            return kind;
    }
    if (stream.type == privateSections) {
        if (const auto kind = ofPrivateSections(stream))
            return kind;
    }
    if (const auto kind = ofCable(stream, programs))
        return kind;
    if (stream.type == cableSubtitlesOrDts && !own.empty())
        return std::nullopt; // somebody else's
    return optionalOf(lookUp(byType, stream.type));
}

std::string typeText(std::uint8_t streamType)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "type 0x%02x", static_cast<unsigned>(streamType));
    return text.data();
}

} // namespace

StreamKind kindOf(const ProgramMap& program, const ProgramMap::Stream& stream)
{
    const std::optional<Kind> kind = kindIn(program, stream);
    if (!kind.has_value())
        return {Medium::Other, typeText(stream.type), "", Decoding::Untold, 0};
    return {kind->medium, kind->text, kind->codec, kind->decoding, kind->code};
}

} // namespace tessary::client
