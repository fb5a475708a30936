#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace tessary::panel {

/// Does something five times a second in a thread of its own.
class Ticker
{
public:
    explicit Ticker(std::function<void()> tick);
    ~Ticker();
    Ticker(const Ticker&) = delete;
    Ticker& operator=(const Ticker&) = delete;

private:
    void run();

    std::function<void()> m_tick;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
    std::thread m_thread;
};

} // namespace tessary::panel
