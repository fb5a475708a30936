#include "t2midemux.h"

#include "crc.h"
#include "packetizer.h"

#include <algorithm>
#include <utility>

namespace tessary::t2mi {

T2MiDemux::T2MiDemux(int pid, PacketSink packetSink, LossSink lossSink)
    : m_pid(pid)
    , m_packetSink(std::move(packetSink))
    , m_lossSink(std::move(lossSink))
{
}

void T2MiDemux::push(const std::uint8_t* tsPacket)
{
    const int pid = (tsPacket[1] & 0x1F) << 8 | tsPacket[2];
    // A packet marked as damaged counts as lost: even its PID is not sure.
    if (pid != m_pid || (tsPacket[1] & 0x80) != 0)
        return;
    const bool unitStart = (tsPacket[1] & 0x40) != 0;
    const bool scrambled = (tsPacket[3] & 0xC0) != 0;
    const bool hasAdaptation = (tsPacket[3] & 0x20) != 0;
    const bool hasPayload = (tsPacket[3] & 0x10) != 0;
    if (!hasPayload || scrambled)
        return; // the counter stands still without payload; a scrambled payload shows as a gap
    std::size_t start = 4;
    bool announcedGap = false;
    if (hasAdaptation) {
        const std::size_t length = tsPacket[4];
        announcedGap = length > 0 && (tsPacket[5] & 0x80) != 0;
        start += 1 + length;
    }
    if (start >= kTsPacketBytes)
        return;

    const std::uint8_t* payload = tsPacket + start;
    const std::size_t size = kTsPacketBytes - start;
    const unsigned counter = tsPacket[3] & 0x0FU;
    if (isRepeated(payload, size, counter))
        return;
    const bool first = m_lastContinuityCounter < 0;
    if (!first
        && (announcedGap || counter != ((static_cast<unsigned>(m_lastContinuityCounter) + 1) & 0x0FU))) {
        ++m_counters.tsDiscontinuities;
        lose();
    }
    m_lastContinuityCounter = static_cast<int>(counter);
    m_lastPayload.assign(payload, payload + size);
    takePayload(payload, size, unitStart);
}

bool T2MiDemux::isRepeated(const std::uint8_t* payload, std::size_t size, unsigned continuityCounter) const
{
    return m_lastContinuityCounter == static_cast<int>(continuityCounter) && m_lastPayload.size() == size
        && std::equal(payload, payload + size, m_lastPayload.begin());
}

void T2MiDemux::takePayload(const std::uint8_t* payload, std::size_t size, bool unitStart)
{
    if (!unitStart) {
        if (m_synced) {
            m_pending.insert(m_pending.end(), payload, payload + size);
            extractWholePackets();
        }
        return;
    }
    const std::size_t pointer = payload[0];
    if (pointer + 1 > size) {
        ++m_counters.framingErrors;
        lose();
        return;
    }
    if (m_synced) { // the bytes before the pointed place end the packet begun earlier
        m_pending.insert(m_pending.end(), payload + 1, payload + 1 + pointer);
        extractWholePackets();
        if (!m_pending.empty()) {
            ++m_counters.framingErrors;
            lose();
        }
    }
    m_pending.assign(payload + 1 + pointer, payload + size);
    m_synced = true;
    extractWholePackets();
}

void T2MiDemux::extractWholePackets()
{
    std::size_t position = 0;
    while (m_pending.size() - position >= kT2MiHeaderBytes) {
        const std::uint8_t* packet = m_pending.data() + position;
        const std::size_t payloadBits = static_cast<std::size_t>(packet[4] << 8 | packet[5]);
        const std::size_t size = kT2MiHeaderBytes + (payloadBits + 7) / 8 + kT2MiCrcBytes;
        if (m_pending.size() - position < size)
            break;
        deliver(packet, size);
        position += size;
    }
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(position));
}

void T2MiDemux::deliver(const std::uint8_t* packet, std::size_t size)
{
    if (crc32(packet, size) != 0) {
        ++m_counters.crcErrors;
        m_lossSink();
        return;
    }
    checkPacketCount(packet);
    ++m_counters.packets;
    m_packetSink(packet, size);
}

// A jump of packet_count shows T2-MI packets lost before they were put into the transport stream. Streams
// that share the PID may count together or each for itself, so only neighbours of one t2mi_stream_id are
// compared.
void T2MiDemux::checkPacketCount(const std::uint8_t* packet)
{
    const int count = packet[1];
    const int streamId = packet[3] & 0x07;
    const bool comparable = m_lastCount >= 0 && streamId == m_lastStreamId;
    if (comparable && count != ((m_lastCount + 1) & 0xFF) && count != m_lastCount) {
        ++m_counters.countErrors;
        m_lossSink();
    }
    m_lastCount = count;
    m_lastStreamId = streamId;
}

void T2MiDemux::lose()
{
    m_pending.clear();
    m_synced = false;
    m_lastCount = -1;
    m_lossSink();
}

} // namespace tessary::t2mi
