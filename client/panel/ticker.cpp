#include "client/panel/ticker.h"

#include "client/tessaryctl/signalsblocked.h"

#include <chrono>

namespace tessary::panel {

Ticker::Ticker(std::function<void()> tick)
    : m_tick(std::move(tick))
{
    const ctl::SignalsBlocked blocked;
    m_thread = std::thread([this] { run(); });
}

Ticker::~Ticker()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void Ticker::run()
{
    constexpr std::chrono::milliseconds interval{200};
    std::unique_lock lock(m_mutex);
    while (!m_stop) {
        lock.unlock();
        m_tick();
        lock.lock();
        m_wake.wait_for(lock, interval, [this] { return m_stop; });
    }
}

} // namespace tessary::panel
