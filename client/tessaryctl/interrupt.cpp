#include "client/tessaryctl/interrupt.h"

#include <algorithm>
#include <thread>

namespace tessary::ctl {

namespace {

volatile std::sig_atomic_t noted = 0;

} // namespace

InterruptGuard::InterruptGuard()
{
    noted = 0;
    struct sigaction action
    {
    };
    action.sa_handler = [](int) { noted = 1; };
    for (std::size_t i = 0; i < signals.size(); ++i)
        ::sigaction(signals[i], &action, &m_before[i]);
}

InterruptGuard::~InterruptGuard()
{
    for (std::size_t i = 0; i < signals.size(); ++i)
        ::sigaction(signals[i], &m_before[i], nullptr);
}

bool InterruptGuard::interrupted() const
{
    return noted != 0;
}

void InterruptGuard::sleepUntil(std::chrono::steady_clock::time_point moment) const
{
    constexpr std::chrono::milliseconds step{100}; // a signal may come between the look and the sleep
    for (auto now = std::chrono::steady_clock::now(); now < moment && !interrupted();
         now = std::chrono::steady_clock::now())
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(step, moment - now));
}

} // namespace tessary::ctl
