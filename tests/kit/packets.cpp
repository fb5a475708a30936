#include "kit/packets.h"

#include <algorithm>

namespace tessary::test {

Bytes makePacket(unsigned pid, unsigned counter, const PacketParts& parts)
{
    Bytes bytes{0x47, lowByte((parts.unitStart ? 0x40U : 0U) | pid >> 8U), lowByte(pid),
        lowByte(parts.control << 4U | (counter & 0x0FU))};
    if (parts.control & adaptationOnly) {
        const bool alone = parts.control == adaptationOnly;
        bytes.push_back(lowByte(alone ? packetBytes - 5 : parts.adaptation.size()));
        append(bytes, parts.adaptation);
    }
    append(bytes, parts.payload);
    bytes.resize(packetBytes, parts.fill);
    return bytes;
}

Bytes packet(unsigned pid, unsigned counter, std::uint8_t fill)
{
    return makePacket(pid, counter, {payloadOnly, {}, {}, false, fill});
}

Bytes packetWithFlags(unsigned pid, unsigned counter, std::uint8_t flags)
{
    return makePacket(pid, counter, {adaptationAndPayload, {flags}, {}, false, 0xAA});
}

Bytes packetWithoutPayload(unsigned pid, unsigned counter)
{
    return makePacket(pid, counter, {adaptationOnly});
}

Bytes packetWithPcr(unsigned pid, unsigned counter, std::uint64_t base, unsigned extension)
{
    return makePacket(pid, counter, {adaptationAndPayload, pcrField(base, extension), {}, false, 0xAA});
}

Bytes pcrField(std::uint64_t base, unsigned extension)
{
    const std::uint64_t field = base << 15U | std::uint64_t{0x3F} << 9U | extension;
    Bytes bytes{0x10};
    append16(bytes, field >> 32U);
    append32(bytes, field);
    return bytes;
}

Bytes nullPacket()
{
    return makePacket(0x1FFF, 0);
}

Bytes nullPackets(std::size_t count)
{
    return join(std::vector<Bytes>(count, nullPacket()));
}

Bytes userPacket(unsigned index)
{
    Bytes payload;
    for (unsigned i = 4; i < packetBytes; ++i)
        payload.push_back(lowByte(index * 31U + i * 7U));
    return makePacket(0x123, index, {payloadOnly, {}, payload});
}

Bytes packetsOf(unsigned pid, const Bytes& section, unsigned& counter)
{
    constexpr std::size_t room = packetBytes - 4;
    const Bytes payload = join({{0x00}, section});
    Bytes packets;
    for (std::size_t at = 0; at < payload.size(); at += room) {
        const auto from = payload.begin() + static_cast<std::ptrdiff_t>(at);
        const auto size = static_cast<std::ptrdiff_t>(std::min(room, payload.size() - at));
        append(packets, makePacket(pid, counter++, {payloadOnly, {}, {from, from + size}, at == 0}));
    }
    return packets;
}

Bytes packetsOf(unsigned pid, const Bytes& section)
{
    unsigned counter = 0;
    return packetsOf(pid, section, counter);
}

} // namespace tessary::test
