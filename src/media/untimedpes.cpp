#include "media/untimedpes.h"

namespace {

/// Payload of a packet, or what has none.
struct Payload
{
    const std::uint8_t* first;
    std::size_t size;
};

unsigned pidOf(const std::uint8_t* packet)
{
    return static_cast<unsigned>((packet[1] & 0x1f) << 8 | packet[2]);
}

/// Of a packet with transport_error_indicator or transport_scrambling_control no payload can be read.
bool isReadable(const std::uint8_t* packet)
{
    return !(packet[1] & 0x80) && !(packet[3] & 0xc0);
}

Payload payloadOf(const std::uint8_t* packet)
{
    const bool hasPayload = packet[3] & 0x10;
    const bool hasAdaptationField = packet[3] & 0x20;
    const std::size_t header = 4U + (hasAdaptationField ? 1U + packet[4] : 0U);
    if (!hasPayload || header >= UntimedPes::packetSize)
        return {packet, 0};
    return {packet + header, UntimedPes::packetSize - header};
}

bool isStart(const std::uint8_t* packet)
{
    return packet[1] & 0x40;
}

/// As far as the payload goes: a start code may be cut by the packet's end.
bool beginsPes(Payload payload)
{
    constexpr std::array<std::uint8_t, 3> startCode{0x00, 0x00, 0x01};
    for (std::size_t i = 0; i < startCode.size() && i < payload.size; ++i) {
        if (payload.first[i] != startCode[i])
            return false;
    }
    return true;
}

/// Streams whose PES packets have no header behind the length (table 2-21).
bool hasNoHeader(std::uint8_t streamId)
{
    switch (streamId) {
    case 0xBC:
    case 0xBE:
    case 0xBF:
    case 0xF0:
    case 0xF1:
    case 0xF2:
    case 0xF8:
    case 0xFF:
        return true;
    default:
        return false;
    }
}

constexpr std::size_t fixedHeader = 9; // to PES_header_data_length

bool hasPts(Payload payload)
{
    return payload.size >= fixedHeader && !hasNoHeader(payload.first[3]) && (payload.first[7] & 0x80);
}

} // namespace

bool UntimedPes::begins(const std::uint8_t* packet)
{
    if (!isStart(packet) || !isReadable(packet))
        return false;
    const Payload payload = payloadOf(packet);
    return payload.size > 0 && beginsPes(payload) && !hasPts(payload);
}

bool UntimedPes::take(const std::uint8_t* packet)
{
    if (!isReadable(packet))
        return true;
    bool& isLeftOut = m_isLeftOut[pidOf(packet)];
    if (isStart(packet))
        isLeftOut = m_waiting && begins(packet);
    return !isLeftOut;
}
