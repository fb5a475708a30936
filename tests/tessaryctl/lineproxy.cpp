#include "lineproxy.h"

#include <algorithm>

namespace tessary::test {

using client::Milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t driverBuffer = 4096; // what a serial driver takes before the writer has to wait
constexpr std::size_t receiverFifo = 32; // the module's UART hands out what is in its FIFO in one piece

} // namespace

LineProxy::LineProxy(const std::string& controllerPort, Faults faults)
    : m_faults(faults)
    , m_instrument(controllerPort)
    , m_thread([this] { run(); })
{
}

LineProxy::~LineProxy()
{
    m_stop = true;
    m_thread.join();
}

void LineProxy::run()
{
    while (!m_stop && carry()) { }
    if (!m_stop) {
        m_pulled = true;
        m_pty.hangUp();
    }
}

bool LineProxy::carry()
{
    return carryToDaemon() && carryFromDaemon();
}

std::string LineProxy::withFaults(const std::string& bytes)
{
    std::string arriving;
    for (const char byte : bytes) {
        const std::int64_t position = m_toDaemon++;
        if (position >= m_faults.dropFrom && position < m_faults.dropFrom + m_faults.dropCount)
            continue;
        arriving.push_back(position == m_faults.damageAt ? static_cast<char>(~byte) : byte);
    }
    return arriving;
}

void LineProxy::swallow()
{
    const std::size_t at =
        m_faults.swallowed.empty() ? std::string::npos : m_waiting.find(m_faults.swallowed);
    if (at != std::string::npos)
        m_waiting.erase(at, m_faults.swallowed.size());
}

bool LineProxy::carryToDaemon()
{
    while (m_waiting.size() < driverBuffer) {
        const std::string more = m_pty.receive(m_faults.bytesPerSecond == 0 && m_waiting.empty() ? 5 : 0);
        if (more.empty())
            break;
        m_waiting += more;
    }
    swallow();
    std::size_t count = m_waiting.size();
    if (m_faults.bytesPerSecond != 0) {
        std::this_thread::sleep_until(m_lastTick + Milliseconds(10));
        const auto now = Clock::now();
        const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(now - m_lastTick);
        m_lastTick = now;
        const std::size_t allowed =
            m_faults.bytesPerSecond * static_cast<std::size_t>(passed.count()) / 1000000;
        count = m_waiting.size() <= allowed + receiverFifo ? m_waiting.size() : allowed;
    }
    if (m_faults.pullAfterCommand >= 0)
        count = std::min(count, static_cast<std::size_t>(m_faults.pullAfterCommand - m_toDaemon));
    const std::string bytes = withFaults(m_waiting.substr(0, count));
    m_waiting.erase(0, count);
    if (!bytes.empty())
        m_instrument.write(bytes, Milliseconds(60000));
    return m_toDaemon != m_faults.pullAfterCommand;
}

bool LineProxy::carryFromDaemon()
{
    std::string bytes = m_instrument.readSome(Milliseconds(m_faults.bytesPerSecond == 0 ? 2 : 0));
    if (m_faults.pullAfterAnswer >= 0)
        bytes.resize(
            std::min(bytes.size(), static_cast<std::size_t>(m_faults.pullAfterAnswer - m_fromDaemon)));
    if (!bytes.empty())
        m_pty.send(bytes);
    m_fromDaemon += static_cast<std::int64_t>(bytes.size());
    if (m_fromDaemon != m_faults.pullAfterAnswer)
        return true;
    std::this_thread::sleep_for(Milliseconds(50)); // what was sent reaches the tool before the plug is out
    return false;
}

} // namespace tessary::test
