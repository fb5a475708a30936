#include "extractor.h"

namespace tessary::t2mi {

Extractor::Extractor(int pid, int plp)
    : m_packetizer([this](const std::uint8_t* packet) { m_demux.push(packet); })
    , m_demux(
          pid, [this](const std::uint8_t* packet, std::size_t size) { onPacket(packet, size); },
          [this] { m_baseband.lose(); })
    , m_baseband(plp)
{
}

void Extractor::push(const std::uint8_t* data, std::size_t size, std::vector<std::uint8_t>& out)
{
    m_out = &out;
    m_packetizer.push(data, size);
    m_out = nullptr;
}

void Extractor::onPacket(const std::uint8_t* packet, std::size_t size)
{
    {
        const std::lock_guard<std::mutex> lock(m_lastMutex);
        m_last.assign(packet, packet + size);
    }
    if (packet[0] == static_cast<std::uint8_t>(PacketType::BasebandFrame))
        m_baseband.push(packet + kT2MiHeaderBytes, size - kT2MiHeaderBytes - kT2MiCrcBytes, *m_out);
}

std::vector<std::uint8_t> Extractor::lastPacket() const
{
    const std::lock_guard<std::mutex> lock(m_lastMutex);
    return m_last;
}

} // namespace tessary::t2mi
