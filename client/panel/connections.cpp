#include "client/panel/connections.h"

#include <thread>

namespace tessary::panel {

Connections::Taken Connections::enqueue(std::function<void()> serve)
{
    {
        const std::lock_guard lock(m_mutex);
        ++m_open;
    }
    std::thread([this, serve = std::move(serve)] {
        serve();
        const std::lock_guard ended(m_mutex);
        --m_open;
        m_ended.notify_all();
    }).detach();
    return static_cast<Taken>(true);
}

void Connections::shutdown()
{
    std::unique_lock lock(m_mutex);
    m_ended.wait(lock, [this] { return m_open == 0; });
}

} // namespace tessary::panel
