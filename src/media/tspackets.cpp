#include "media/tspackets.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::uint8_t syncByte = 0x47;
constexpr std::array<std::size_t, 4> steps{188, 192, 204, 208};

} // namespace

void TsPackets::reset()
{
    m_bytes.clear();
    m_at = 0;
    m_step = 0;
}

void TsPackets::add(const std::uint8_t* bytes, std::size_t size)
{
    const std::size_t used = std::min(m_at, m_bytes.size());
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(used));
    m_at -= used;
    m_bytes.insert(m_bytes.end(), bytes, bytes + size);
}

const std::uint8_t* TsPackets::next()
{
    while (m_step != 0 || findStep()) {
        if (m_at + shortest > m_bytes.size())
            return nullptr;
        const std::size_t at = m_at;
        if (m_bytes[at] == syncByte) {
            m_at += m_step;
            return &m_bytes[at];
        }
        m_step = 0;
    }
    return nullptr;
}

/// Three packets in a row tell the step. Bytes that begin none are passed over.
bool TsPackets::findStep()
{
    for (; m_at + 2 * steps.back() < m_bytes.size(); ++m_at) {
        for (const std::size_t step : steps) {
            if (begins(m_at) && begins(m_at + step) && begins(m_at + 2 * step)) {
                m_step = step;
                return true;
            }
        }
    }
    return false;
}

bool TsPackets::begins(std::size_t at) const
{
    return m_bytes[at] == syncByte;
}
