#include "kit/t2mi.h"

#include "kit/crc.h"
#include "kit/packets.h"

#include <algorithm>

namespace tessary::test {
namespace {

/// What the CRC-8 of a user packet is made of: all but its sync byte.
std::uint8_t userPacketCrc(const Bytes& packet)
{
    return crc8DvbT2({packet.begin() + 1, packet.end()});
}

// One user packet as it stands in the data field. `previous` is the packet before it, empty at the start.
Bytes userUnit(const Bytes& packet, const Bytes& previous, unsigned deleted, const ModeOptions& options)
{
    Bytes unit;
    const bool normal = options.mode != Mode::HighEfficiency;
    if (options.mode == Mode::NormalCrcAhead)
        unit.push_back(previous.empty() ? std::uint8_t{0} : userPacketCrc(previous));
    unit.insert(unit.end(), packet.begin() + 1, packet.end());
    if (normal && options.issyBytes > 0) {
        unit.push_back(options.issyBytes == 2 ? 0x12 : 0x9A);
        unit.insert(unit.end(), options.issyBytes - 1, 0x47); // an ISSY that looks like a sync byte
    }
    if (options.deleteNullPackets)
        unit.push_back(static_cast<std::uint8_t>(deleted));
    if (options.mode == Mode::Normal)
        unit.push_back(userPacketCrc(packet));
    return unit;
}

Bytes header(const ModeOptions& options, std::size_t unitBytes, std::size_t dataBytes, std::size_t syncd)
{
    const bool highEfficiency = options.mode == Mode::HighEfficiency;
    const unsigned matype = 0xF0U | (options.issyBytes > 0 ? 8U : 0U) | (options.deleteNullPackets ? 4U : 0U);
    Bytes head{static_cast<std::uint8_t>(matype), 0};
    if (highEfficiency)
        append16(head, options.issyBytes > 0 ? 0x8A47 : 0);
    else
        append16(head, options.tellLength ? unitBytes * 8 : 0);
    append16(head, dataBytes * 8);
    head.push_back(0x47);
    append16(head, syncd);
    head.push_back(lowByte(crc8DvbT2(head) ^ (highEfficiency ? 1U : 0U)));
    return head;
}

/// A packet whose adaptation field stuffs what the payload leaves.
Bytes stuffedPacket(int pid, bool unitStart, unsigned counter, const Bytes& payload)
{
    const std::size_t stuffing = packetBytes - 4 - payload.size();
    PacketParts parts{stuffing > 0 ? adaptationAndPayload : payloadOnly, {}, payload, unitStart};
    if (stuffing > 1) {
        parts.adaptation = {0x00}; // no flags
        parts.adaptation.resize(stuffing - 1, 0xFF);
    }
    return makePacket(static_cast<unsigned>(pid), counter, parts);
}

} // namespace

std::vector<Bytes> basebandFrames(
    const std::vector<Bytes>& packets, const ModeOptions& options, std::size_t dataBytes)
{
    Bytes stream;
    std::vector<std::size_t> starts;
    Bytes previous;
    unsigned deleted = 0;
    std::size_t unitBytes = 0;
    const Bytes null = nullPacket();
    for (const Bytes& packet : packets) {
        if (options.deleteNullPackets && packet == null && deleted < 255) {
            ++deleted;
            continue;
        }
        starts.push_back(stream.size());
        const Bytes unit = userUnit(packet, previous, deleted, options);
        unitBytes = unit.size();
        append(stream, unit);
        previous = packet;
        deleted = 0;
    }
    std::vector<Bytes> frames;
    for (std::size_t at = 0; at < stream.size(); at += dataBytes) {
        const std::size_t size = std::min(dataBytes, stream.size() - at);
        const auto start = std::lower_bound(starts.begin(), starts.end(), at);
        const bool starting = start != starts.end() && *start < at + size;
        Bytes frame = header(options, unitBytes, size, starting ? (*start - at) * 8 : 0xFFFF);
        frame.insert(frame.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
            stream.begin() + static_cast<std::ptrdiff_t>(at + size));
        frame.resize(10 + dataBytes, 0); // padding behind a short data field
        frames.push_back(frame);
    }
    return frames;
}

Bytes t2miPacket(
    unsigned type, unsigned count, const Bytes& payload, unsigned streamId, std::size_t payloadBits)
{
    Bytes packet{lowByte(type), lowByte(count), 0, lowByte(streamId & 7U)};
    append16(packet, payloadBits > 0 ? payloadBits : payload.size() * 8);
    append(packet, payload);
    return withCrc32(std::move(packet));
}

std::vector<Bytes> t2miFrames(const std::vector<Bytes>& frames, int plp, unsigned firstCount)
{
    std::vector<Bytes> packets;
    for (const Bytes& frame : frames) {
        Bytes payload{0, static_cast<std::uint8_t>(plp), 0x80};
        append(payload, frame);
        packets.push_back(t2miPacket(0, firstCount++, payload));
    }
    return packets;
}

std::vector<Bytes> tsPackets(const std::vector<Bytes>& t2miPackets, int pid, unsigned firstCounter)
{
    const Bytes stream = join(t2miPackets);
    std::vector<std::size_t> starts;
    std::size_t position = 0;
    for (const Bytes& packet : t2miPackets) {
        starts.push_back(position);
        position += packet.size();
    }
    std::vector<Bytes> packets;
    std::size_t at = 0;
    while (at < stream.size()) {
        const auto start = std::lower_bound(starts.begin(), starts.end(), at);
        const std::size_t distance = start != starts.end() ? *start - at : stream.size();
        // A packet that would start in the very last byte finds no room beside its pointer_field: one byte is
        // stuffed.
        const bool unitStart = distance < 183;
        const std::size_t room = unitStart || distance == 183 ? 183 : 184;
        const std::size_t size = std::min(room, stream.size() - at);
        Bytes payload;
        if (unitStart)
            payload.push_back(static_cast<std::uint8_t>(distance));
        payload.insert(payload.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
            stream.begin() + static_cast<std::ptrdiff_t>(at + size));
        packets.push_back(stuffedPacket(pid, unitStart, firstCounter++, payload));
        at += size;
    }
    return packets;
}

} // namespace tessary::test
