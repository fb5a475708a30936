#include "packet_source.h"

#include <cstring>

#include "reed_solomon.h"

namespace tessary::sender {

PacketSource::PacketSource(const TsFile& file, const SourceSettings& settings)
    : m_file(file)
    , m_settings(settings)
    , m_index(file.packetCount())
{
    if (settings.restampTicks != 0)
        m_restamper.emplace(settings.restampTicks);
}

bool PacketSource::beginPass()
{
    if (m_settings.passes != 0 && m_pass == m_settings.passes)
        return false;
    if (m_pass > 0) {
        m_counters.startPass();
        if (m_restamper)
            m_restamper->startPass();
    }
    ++m_pass;
    m_index = 0;
    return true;
}

bool PacketSource::change(std::uint8_t* packet)
{
    if (m_restamper)
        m_restamper->process(packet);
    if (m_settings.rewriteCounters) {
        const bool wanted = m_errorsMade < m_errorsWanted && m_settings.breakablePids.test(ts::pid(packet));
        if (m_counters.process(packet, wanted))
            ++m_errorsMade;
    }
    return std::memcmp(packet, m_file.packet(m_index), ts::PacketBytes) != 0;
}

bool PacketSource::next(std::uint8_t* out)
{
    if (m_index == m_file.packetCount() && !beginPass())
        return false;
    std::memcpy(out, m_file.packet(m_index), ts::PacketBytes);
    const bool changed = change(out);
    if (m_settings.packetSize == ts::CodedPacketBytes) {
        // Parity of the file fits only the bytes of the file.
        if (m_file.packetSize() == ts::CodedPacketBytes && !changed)
            std::memcpy(out + ts::PacketBytes, m_file.packet(m_index) + ts::PacketBytes,
                ts::CodedPacketBytes - ts::PacketBytes);
        else
            reedSolomonParity(out, out + ts::PacketBytes);
    }
    ++m_index;
    return true;
}

} // namespace tessary::sender
