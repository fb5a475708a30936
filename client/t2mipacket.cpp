#include "client/t2mipacket.h"

#include "client/crc32.h"

namespace tessary::client {

namespace {

constexpr std::size_t headerSize = 6;
constexpr std::size_t crcSize = 4;
constexpr std::size_t basebandHeaderSize = 3;
constexpr int basebandFrameType = 0x00;

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
    if (packet.type == basebandFrameType && payload >= basebandHeaderSize)
        packet.basebandFrame = {bytes[6], bytes[7], (bytes[8] & 0x80U) != 0, payload - basebandHeaderSize};
    return packet;
}

std::string t2miTypeName(int type)
{
    switch (type) {
    case 0x00:
        return "baseband frame";
    case 0x01:
        return "auxiliary stream";
    case 0x02:
        return "arbitrary cell insertion";
    case 0x10:
        return "L1-current";
    case 0x11:
        return "L1-future";
    case 0x12:
        return "P2 bias balancing";
    case 0x20:
        return "DVB-T2 timestamp";
    case 0x21:
        return "individual addressing";
    case 0x30:
        return "FEF part: null";
    case 0x31:
        return "FEF part: I/Q data";
    case 0x32:
        return "FEF part: composite";
    case 0x33:
        return "FEF sub-part";
    default:
        return "reserved type " + std::to_string(type);
    }
}

} // namespace tessary::client
