#pragma once

#include <condition_variable>
#include <functional>
#include <httplib.h>
#include <mutex>
#include <utility>

namespace tessary::panel {

/// A thread for each connection: each browser keeps some open for as long as it looks. LimitedServer turns away those that
/// are too many.
class Connections : public httplib::TaskQueue
{
public:
    /// Nothing, or of later versions of the library whether the connection is taken.
    using Taken = decltype(std::declval<httplib::TaskQueue&>().enqueue(nullptr));

    Taken enqueue(std::function<void()> serve) override;
    /// Waits until all have ended.
    void shutdown() override;

private:
    std::mutex m_mutex;
    std::condition_variable m_ended;
    int m_open = 0;
};

} // namespace tessary::panel
