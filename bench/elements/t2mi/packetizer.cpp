#include "packetizer.h"

#include <utility>

namespace tessary::t2mi {

Packetizer::Packetizer(PacketSink sink)
    : m_sink(std::move(sink))
{
}

void Packetizer::reset()
{
    m_pending.clear();
    m_inStep = true;
}

// Moves `position` to the next place where two sync bytes stand one packet apart. False: more bytes are
// needed.
bool Packetizer::findStep(std::size_t& position)
{
    while (position + kTsPacketBytes < m_pending.size()) {
        if (m_pending[position] == kTsSyncByte && m_pending[position + kTsPacketBytes] == kTsSyncByte)
            return true;
        ++position;
        ++m_skippedBytes;
    }
    return false;
}

void Packetizer::push(const std::uint8_t* data, std::size_t size)
{
    m_pending.insert(m_pending.end(), data, data + size);
    std::size_t position = 0;
    while (position < m_pending.size()) {
        if (m_inStep && m_pending[position] != kTsSyncByte)
            m_inStep = false;
        if (!m_inStep) {
            if (!findStep(position))
                break;
            m_inStep = true;
        }
        if (m_pending.size() - position < kTsPacketBytes)
            break;
        m_sink(m_pending.data() + position);
        position += kTsPacketBytes;
    }
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(position));
}

} // namespace tessary::t2mi
