#include "client/psi/t2mipacket.h"

#include "client/psi/bitreader.h"
#include "client/psi/crc32.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace tessary::client {

namespace {

constexpr std::size_t headerSize = 6;
constexpr std::size_t crcSize = 4;
constexpr std::size_t basebandHeaderSize = 3;
constexpr int basebandFrameType = 0x00;
constexpr int l1CurrentType = 0x10;
constexpr int timestampType = 0x20;

/// packet_type (ETSI TS 102 773, table 1).
struct Type
{
    int code;
    const char* word;
    const char* name;
};

constexpr Type types[] = {
    {basebandFrameType, "baseband", "baseband frame"},
    {0x01, "auxiliary", "auxiliary stream"},
    {0x02, "cells", "arbitrary cell insertion"},
    {l1CurrentType, "l1-current", "L1-current"},
    {0x11, "l1-future", "L1-future"},
    {0x12, "bias", "P2 bias balancing"},
    {timestampType, "timestamp", "DVB-T2 timestamp"},
    {0x21, "addressing", "individual addressing"},
    {0x30, "fef-null", "FEF part: null"},
    {0x31, "fef-iq", "FEF part: I/Q data"},
    {0x32, "fef-composite", "FEF part: composite"},
    {0x33, "fef-sub", "FEF sub-part"},
};

/// Of the first 9 bytes of a BBHEADER (ETSI EN 302 755, annex F).
unsigned crc8(const Bytes& bytes, std::size_t first)
{
    constexpr std::size_t covered = 9;
    unsigned crc = 0;
    for (std::size_t i = first; i < first + covered; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1U ^ ((crc & 0x80U) != 0 ? 0xD5U : 0U)) & 0xFFU;
    }
    return crc;
}

/// The last byte is the CRC-8 with the mode added to it.
std::string modeOf(unsigned crcDifference)
{
    return crcDifference == 0 ? "normal" : crcDifference == 1 ? "high efficiency" : "";
}

T2miPacket::BasebandHeader basebandHeader(const Bytes& bytes, std::size_t first)
{
    constexpr const char* inputs[] = {"GFPS", "GCS", "GSE", "TS"};
    constexpr std::size_t crcAt = 9;
    BitReader bits(bytes, first);
    T2miPacket::BasebandHeader header;
    header.input = inputs[bits.take(2)];
    header.singleInput = bits.flag();
    header.constantCoding = bits.flag();
    header.inputSynchronized = bits.flag();
    header.nullPacketsDeleted = bits.flag();
    bits.take(2);
    header.inputStream = static_cast<int>(bits.take(8));
    header.userPacketBits = static_cast<int>(bits.take(16));
    header.dataFieldBits = static_cast<int>(bits.take(16));
    bits.take(8); // SYNC
    header.syncDistance = static_cast<int>(bits.take(16));
    header.mode = modeOf(crc8(bytes, first) ^ bytes[first + crcAt]);
    if (header.mode != "normal")
        header.userPacketBits = 0; // in high efficiency mode part of ISSY stands there
    return header;
}

T2miPacket::BasebandFrame basebandFrame(const Bytes& bytes, std::size_t payload)
{
    constexpr std::size_t headerBytes = 10;
    T2miPacket::BasebandFrame frame;
    frame.frameIndex = bytes[headerSize];
    frame.plpId = bytes[headerSize + 1];
    frame.interleavingFrameStart = (bytes[headerSize + 2] & 0x80U) != 0;
    frame.bytes = payload - basebandHeaderSize;
    if (frame.bytes >= headerBytes)
        frame.header = basebandHeader(bytes, headerSize + basebandHeaderSize);
    return frame;
}

constexpr std::uint64_t nullSeconds = 0xFFFFFFFFFFU;

T2miPacket::Timestamp timestampOf(const Bytes& bytes)
{
    // bw: the bandwidth in Hz, and how many subseconds a microsecond has.
    struct Bandwidth
    {
        double hertz;
        double perMicrosecond;
    };
    constexpr Bandwidth bandwidths[] = {{1.7e6, 131}, {5e6, 40}, {6e6, 48}, {7e6, 56}, {8e6, 64}, {10e6, 80}};
    using Kind = T2miPacket::Timestamp::Kind;
    BitReader bits(bytes, headerSize);
    bits.take(4); // reserved
    T2miPacket::Timestamp timestamp;
    const std::size_t bandwidth = bits.take(4);
    timestamp.seconds = bits.take(40);
    const auto subseconds = static_cast<double>(bits.take(27));
    timestamp.utcOffset = static_cast<int>(bits.take(13));
    if (bandwidth < std::size(bandwidths)) {
        timestamp.bandwidth = bandwidths[bandwidth].hertz;
        timestamp.microseconds = subseconds / bandwidths[bandwidth].perMicrosecond;
    }
    timestamp.kind = timestamp.seconds == 0 ? Kind::Relative
        : timestamp.seconds == nullSeconds  ? Kind::Null
                                            : Kind::Absolute;
    return timestamp;
}

} // namespace

std::size_t t2miPacketSize(const Bytes& bytes)
{
    if (bytes.size() < headerSize)
        return 0;
    const std::size_t bits = static_cast<std::size_t>(bytes[4]) << 8U | bytes[5];
    return headerSize + (bits + 7) / 8 + crcSize;
}

std::optional<T2miPacket> decodeT2miPacket(const Bytes& bytes)
{
    if (bytes.size() < headerSize || bytes.size() != t2miPacketSize(bytes))
        return std::nullopt;
    T2miPacket packet;
    packet.type = bytes[0];
    packet.count = bytes[1];
    packet.superframeIndex = bytes[2] >> 4U;
    packet.streamId = static_cast<int>(bytes[3] & 0x07U);
    packet.payloadBits = static_cast<std::size_t>(bytes[4]) << 8U | bytes[5];
    packet.crcCorrect = crc32Mpeg(bytes.data(), bytes.size()) == 0;
    const std::size_t payload = bytes.size() - headerSize - crcSize;
    constexpr std::size_t timestampBytes = 11;
    if (packet.type == basebandFrameType && payload >= basebandHeaderSize)
        packet.basebandFrame = basebandFrame(bytes, payload);
    if (packet.type == timestampType && payload >= timestampBytes)
        packet.timestamp = timestampOf(bytes);
    if (packet.type == l1CurrentType) {
        const auto first = bytes.begin() + headerSize;
        packet.signalling = decodeT2Signalling(Bytes(first, first + static_cast<std::ptrdiff_t>(payload)));
    }
    return packet;
}

std::string t2miTypeName(int type)
{
    const auto found = std::find_if(
        std::begin(types), std::end(types), [type](const Type& known) { return known.code == type; });
    return found != std::end(types) ? found->name : "reserved type " + std::to_string(type);
}

std::vector<std::string> t2miTypeWords()
{
    std::vector<std::string> words;
    for (const Type& type : types)
        words.emplace_back(type.word);
    return words;
}

std::optional<int> t2miTypeOf(const std::string& word)
{
    const auto found = std::find_if(
        std::begin(types), std::end(types), [&word](const Type& known) { return known.word == word; });
    return found != std::end(types) ? std::optional(found->code) : std::nullopt;
}

std::int64_t T2miPacket::Timestamp::unixSeconds() const
{
    constexpr std::int64_t year2000 = 946684800;
    return year2000 + static_cast<std::int64_t>(seconds) - utcOffset;
}

std::string textOf(const T2miPacket::Timestamp& timestamp)
{
    using Kind = T2miPacket::Timestamp::Kind;
    if (timestamp.kind == Kind::Null)
        return "null";
    std::array<char, 96> fraction{};
    std::snprintf(fraction.data(), fraction.size(), "%.3f µs", timestamp.microseconds);
    if (timestamp.kind == Kind::Relative)
        return std::string("relative, ") + fraction.data();
    const std::time_t seconds = timestamp.unixSeconds();
    std::tm parts{};
    std::array<char, 64> text{};
    if (::gmtime_r(&seconds, &parts) == nullptr
        || std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC + ", &parts) == 0)
        return "after the calendar's end";
    return std::string(text.data()) + fraction.data();
}

} // namespace tessary::client
