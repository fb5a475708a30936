#include "restamper.h"

#include "ts_packet.h"

namespace tessary::sender {

namespace {

constexpr std::uint64_t StampRange = std::uint64_t{1} << 33; // 90 kHz periods

/// Advance one 5-byte time stamp "xxxx ttt1 tttttttt ttttttt1 tttttttt ttttttt1" in place.
void advanceStamp(std::uint8_t* at, std::uint64_t ticks90k)
{
    std::uint64_t stamp = (std::uint64_t{at[0]} >> 1) & 7U;
    stamp = (stamp << 15) | ((((unsigned{at[1]} << 8) | at[2]) >> 1) & 0x7FFFU);
    stamp = (stamp << 15) | ((((unsigned{at[3]} << 8) | at[4]) >> 1) & 0x7FFFU);
    stamp = (stamp + ticks90k) % StampRange;
    at[0] = static_cast<std::uint8_t>((at[0] & 0xF1U) | ((stamp >> 30) << 1));
    at[1] = static_cast<std::uint8_t>(stamp >> 22);
    at[2] = static_cast<std::uint8_t>(((stamp >> 14) & 0xFEU) | 1U);
    at[3] = static_cast<std::uint8_t>(stamp >> 7);
    at[4] = static_cast<std::uint8_t>(((stamp << 1) & 0xFEU) | 1U);
}

/// True for the stream ids whose PES packets have no optional header (ISO/IEC 13818-1, table 2-21).
bool hasNoOptionalHeader(unsigned streamId)
{
    switch (streamId) {
    case 0xBC: // program_stream_map
    case 0xBE: // padding_stream
    case 0xBF: // private_stream_2
    case 0xF0: // ECM
    case 0xF1: // EMM
    case 0xF2: // DSMCC
    case 0xF8: // H.222.1 type E
    case 0xFF: // program_stream_directory
        return true;
    default:
        return false;
    }
}

void advancePes(std::uint8_t* packet, std::uint64_t ticks90k)
{
    const std::size_t at = ts::payloadOffset(packet);
    std::uint8_t* pes = packet + at;
    const std::size_t room = ts::PacketBytes - at;
    if (room < 14 || pes[0] != 0 || pes[1] != 0 || pes[2] != 1 || hasNoOptionalHeader(pes[3])
        || (pes[6] & 0xC0U) != 0x80U)
        return;
    const unsigned flags = pes[7] >> 6; // 10: PTS, 11: PTS and DTS
    if ((flags & 2U) != 0 && pes[8] >= 5)
        advanceStamp(pes + 9, ticks90k);
    if (flags == 3 && pes[8] >= 10 && room >= 19)
        advanceStamp(pes + 14, ticks90k);
}

} // namespace

void Restamper::process(std::uint8_t* packet) const
{
    if (m_offset == 0 || ts::pid(packet) == ts::NullPid)
        return;
    if (ts::hasPcr(packet))
        ts::setPcr(packet, ts::pcr(packet) + m_offset % ts::PcrRange);
    if (ts::startsUnit(packet) && ts::hasPayload(packet) && !ts::isScrambled(packet))
        advancePes(packet, m_offset / 300);
}

} // namespace tessary::sender
