#include "streaminput.h"

#include <algorithm>

void StreamInput::setRate(std::int64_t bytesPerSecond, Time now)
{
    drain(now);
    m_rate = bytesPerSecond;
    m_drained = now;
}

bool StreamInput::writable(Time now)
{
    drain(now);
    return bufferBytes - m_level >= writableBytes;
}

std::size_t StreamInput::take(std::size_t size, Time now)
{
    drain(now);
    const std::size_t taken = std::min(size, bufferBytes - m_level);
    m_level += taken;
    if (m_rate < 0)
        m_level = 0;
    return taken;
}

void StreamInput::drain(Time now)
{
    if (m_rate < 0) {
        m_level = 0;
        return;
    }
    const std::chrono::duration<double> passed = now - m_drained;
    const auto bytes = static_cast<std::size_t>(passed.count() * static_cast<double>(m_rate));
    if (bytes == 0)
        return; // the fraction of a byte waits
    m_level -= std::min(m_level, bytes);
    m_drained = now;
}
