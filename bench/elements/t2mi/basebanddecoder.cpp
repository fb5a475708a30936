#include "basebanddecoder.h"

#include "crc.h"
#include "packetizer.h"

namespace tessary::t2mi {
namespace {

constexpr std::size_t kFramePrefixBytes = 3; // frame_idx, plp_id, intl_frame_start with seven reserved bits
constexpr std::size_t kHeaderBytes = 10;
constexpr std::size_t kUserBytes = kTsPacketBytes - 1; // a transport stream packet without its sync byte
constexpr std::size_t kNoUnitStart = 0xFFFF;

std::size_t read16(const std::uint8_t* data)
{
    return static_cast<std::size_t>(data[0] << 8 | data[1]);
}

void appendNullPackets(std::size_t count, std::vector<std::uint8_t>& out)
{
    for (; count > 0; --count) {
        static const std::uint8_t head[4] = {kTsSyncByte, 0x1F, 0xFF, 0x10};
        out.insert(out.end(), head, head + sizeof head);
        out.insert(out.end(), kTsPacketBytes - sizeof head, 0xFF);
    }
}

} // namespace

BasebandDecoder::BasebandDecoder(int plp)
    : m_plp(plp)
{
}

void BasebandDecoder::lose()
{
    m_pending.clear();
    m_synced = false;
}

void BasebandDecoder::push(const std::uint8_t* payload, std::size_t size, std::vector<std::uint8_t>& out)
{
    if (size < kFramePrefixBytes + kHeaderBytes || payload[1] != m_plp)
        return;
    ++m_counters.frames;
    const std::uint8_t* frame = payload + kFramePrefixBytes;
    Header header;
    if (!parseHeader(frame, size - kFramePrefixBytes, header)) {
        lose();
        return;
    }
    const Layout& now = header.layout;
    if (now.unitBytes != m_layout.unitBytes || now.highEfficiency != m_layout.highEfficiency
        || now.nullPacketsDeleted != m_layout.nullPacketsDeleted) {
        lose();
        m_layout = now;
        m_crcPlace = CrcPlace::Unknown;
    }
    takeDataField(frame + kHeaderBytes, header, out);
}

// BBHEADER, EN 302 755, 5.1.7: MATYPE (2), UPL (2), DFL (2), SYNC (1), SYNCD (2), CRC-8 xor MODE (1).
// High-efficiency mode carries ISSY in the places of UPL and SYNC.
bool BasebandDecoder::parseHeader(const std::uint8_t* frame, std::size_t size, Header& header)
{
    const unsigned mode = crc8(frame, kHeaderBytes - 1) ^ frame[kHeaderBytes - 1];
    if (mode > 1) {
        ++m_counters.headerErrors;
        return false;
    }
    if (frame[0] >> 6 != 3) {
        ++m_counters.notTransportStream;
        return false;
    }
    const bool issy = (frame[0] & 0x08) != 0;
    Layout& layout = header.layout;
    layout.highEfficiency = mode == 1;
    layout.nullPacketsDeleted = (frame[0] & 0x04) != 0;
    const std::size_t dnpBytes = layout.nullPacketsDeleted ? 1 : 0;
    bool possible = true;
    if (layout.highEfficiency) {
        layout.unitBytes = kUserBytes + dnpBytes;
    } else {
        // The length counts the packet with its CRC-8 and, if present, ISSY and DNP; 0 means it is not told.
        const std::size_t told = read16(frame + 2);
        layout.unitBytes = told != 0 ? told / 8 : kTsPacketBytes + (issy ? 3 : 0) + dnpBytes;
        possible = told % 8 == 0 && layout.unitBytes >= kTsPacketBytes + dnpBytes
            && layout.unitBytes <= kTsPacketBytes + 3 + dnpBytes;
    }
    const std::size_t dataBits = read16(frame + 4);
    const std::size_t syncDistance = read16(frame + 7);
    header.dataBytes = dataBits / 8;
    header.hasUnitStart = syncDistance != kNoUnitStart;
    header.firstUnit = header.hasUnitStart ? syncDistance / 8 : header.dataBytes;
    possible = possible && dataBits % 8 == 0 && header.dataBytes <= size - kHeaderBytes
        && header.firstUnit <= header.dataBytes && (!header.hasUnitStart || syncDistance % 8 == 0);
    if (!possible)
        ++m_counters.headerErrors;
    return possible;
}

void BasebandDecoder::takeDataField(
    const std::uint8_t* data, const Header& header, std::vector<std::uint8_t>& out)
{
    const std::uint8_t* unitStart = data + header.firstUnit;
    if (m_synced) {
        m_pending.insert(m_pending.end(), data, unitStart);
        extractUnits(out);
    }
    if (!header.hasUnitStart)
        return;
    if (m_synced && !m_pending.empty()) {
        // While the place of the CRC-8 is being learnt, one whole unit may be waiting for the byte behind it.
        const bool waiting = m_pending.size() == m_layout.unitBytes;
        if (!waiting) {
            ++m_counters.syncErrors;
            m_pending.clear();
        }
    }
    m_pending.insert(m_pending.end(), unitStart, data + header.dataBytes);
    m_synced = true;
    extractUnits(out);
}

void BasebandDecoder::extractUnits(std::vector<std::uint8_t>& out)
{
    std::size_t position = 0;
    const std::size_t unitBytes = m_layout.unitBytes;
    while (m_pending.size() - position >= unitBytes) {
        const std::uint8_t* unit = m_pending.data() + position;
        if (!m_layout.highEfficiency && m_crcPlace == CrcPlace::Unknown) {
            if (m_pending.size() - position == unitBytes)
                break; // the byte behind the unit is needed to tell
            learnCrcPlace(unit);
        }
        emitUnit(unit, out);
        position += unitBytes;
    }
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(position));
}

// Only called while at least one byte stands behind the unit. A damaged packet fits neither place and decides
// nothing.
void BasebandDecoder::learnCrcPlace(const std::uint8_t* unit)
{
    const std::size_t last = m_layout.unitBytes - 1;
    const bool behind = crc8(unit, kUserBytes) == unit[last] || crc8(unit, last) == unit[last];
    const bool ahead = crc8(unit + 1, kUserBytes) == unit[last + 1] || crc8(unit + 1, last) == unit[last + 1];
    if (behind != ahead)
        m_crcPlace = behind ? CrcPlace::Behind : CrcPlace::Ahead;
}

void BasebandDecoder::emitUnit(const std::uint8_t* unit, std::vector<std::uint8_t>& out)
{
    const std::size_t last = m_layout.unitBytes - 1;
    const bool ahead = !m_layout.highEfficiency && m_crcPlace == CrcPlace::Ahead;
    const bool behind = !m_layout.highEfficiency && !ahead;
    if (m_layout.nullPacketsDeleted) {
        // DNP follows the packet and counts the null packets deleted before it.
        const std::size_t deleted = unit[behind ? last - 1 : last];
        appendNullPackets(deleted, out);
        m_counters.nullPackets += deleted;
    }
    const std::uint8_t* user = ahead ? unit + 1 : unit;
    out.push_back(kTsSyncByte);
    const std::size_t at = out.size();
    out.insert(out.end(), user, user + kUserBytes);
    ++m_counters.userPackets;
    if (behind && crc8(unit, kUserBytes) != unit[last] && crc8(unit, last) != unit[last]) {
        ++m_counters.userPacketErrors;
        out[at] |= 0x80; // transport_error_indicator
    }
}

} // namespace tessary::t2mi
