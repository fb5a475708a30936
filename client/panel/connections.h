#pragma once

#include <condition_variable>
#include <functional>
#include <httplib.h>
#include <mutex>

namespace tessary::panel {

/// A thread for each connection: each browser keeps some open for as long as it looks. LimitedServer turns away those that
/// are too many.
class Connections : public httplib::TaskQueue
{
public:
    void enqueue(std::function<void()> serve) override;
    /// Waits until all have ended.
    void shutdown() override;

private:
    std::mutex m_mutex;
    std::condition_variable m_ended;
    int m_open = 0;
};

} // namespace tessary::panel
