#pragma once

#include <array>
#include <chrono>
#include <csignal>

namespace tessary::ctl {

/// While it lives, Ctrl-C (SIGINT), SIGTERM and SIGHUP are noted instead of ending the program, so that what
/// is being done can be brought to its end. One at a time.
class InterruptGuard
{
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// One of them has come.
    bool interrupted() const;

    /// Sleeps until `moment`; returns at once when one of them comes or has come.
    void sleepUntil(std::chrono::steady_clock::time_point moment) const;

private:
    static constexpr std::array<int, 3> signals{SIGINT, SIGTERM, SIGHUP};

    std::array<struct sigaction, signals.size()> m_before{};
};

} // namespace tessary::ctl
