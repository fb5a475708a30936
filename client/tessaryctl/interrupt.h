#pragma once

#include <array>
#include <chrono>
#include <csignal>

namespace tessary::ctl {

/// While it lives, Ctrl-C (SIGINT), SIGTERM and SIGHUP are noted instead of ending the program, so that what
/// is being done can be brought to its end. Of several, one within the other, the innermost counts. Signals that
/// the program was started to ignore, as by nohup, stay ignored.
class InterruptGuard
{
public:
    /// `endsWaiting`: how many of them end the waiting for an answer, too (stopsWaiting()); 0: however many,
    /// they do not. `notice`, a whole line that stays valid, is written to standard error when the first one
    /// comes.
    explicit InterruptGuard(int endsWaiting = 0, const char* notice = nullptr);
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

    /// One of them has come.
    bool interrupted() const;

    /// Forgets those that have come.
    void clear();

    /// Sleeps until `moment`; returns at once when one of them comes or has come.
    void sleepUntil(std::chrono::steady_clock::time_point moment) const;

    /// The innermost guard's signals have come as often as end the waiting; false without a guard.
    static bool stopsWaiting();
    /// As Ctrl-C does, from any thread of the program, for the innermost guard; nothing without a guard.
    static void interrupt();
    /// SIGTERM or SIGHUP has come: what goes on behind Ctrl-C is to end, too.
    static bool endsProgram();

private:
    static constexpr std::array<int, 3> signals{SIGINT, SIGTERM, SIGHUP};

    std::array<struct sigaction, signals.size()> m_before{};
    int m_endsWaitingBefore;
    const char* m_noticeBefore;
    int m_notedBefore;
};

} // namespace tessary::ctl
