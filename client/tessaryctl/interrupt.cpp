#include "client/tessaryctl/interrupt.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace tessary::ctl {

namespace {

// Of the innermost guard; but for the notes they change only while no signal of its kind is handled by it.
// Signal handlers and other threads change them.
std::atomic<int> noted{0};
std::atomic<bool> ending{false}; // more than Ctrl-C
std::atomic<int> waitingEndsAt{0};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);
const char* volatile noticeText = nullptr;

void note(int signal)
{
    const int before = noted.fetch_add(1);
    if (signal != SIGINT)
        ending = true;
    const char* text = noticeText;
    if (before == 0 && text != nullptr) [[maybe_unused]]
        const ssize_t written = ::write(STDERR_FILENO, text, std::strlen(text));
}

} // namespace

InterruptGuard::InterruptGuard(int endsWaiting, const char* notice)
    : m_endsWaitingBefore(waitingEndsAt)
    , m_noticeBefore(noticeText)
    , m_notedBefore(noted)
{
    noted = 0;
    waitingEndsAt = endsWaiting;
    noticeText = notice;
    struct sigaction action
    {
    };
    action.sa_handler = &note;
    for (std::size_t i = 0; i < signals.size(); ++i) {
        ::sigaction(signals[i], nullptr, &m_before[i]);
        if (m_before[i].sa_handler != SIG_IGN) // as nohup has it
            ::sigaction(signals[i], &action, nullptr);
    }
}

InterruptGuard::~InterruptGuard()
{
    for (std::size_t i = 0; i < signals.size(); ++i)
        ::sigaction(signals[i], &m_before[i], nullptr);
    noted = m_notedBefore;
    waitingEndsAt = m_endsWaitingBefore;
    noticeText = m_noticeBefore;
}

bool InterruptGuard::interrupted() const
{
    return noted != 0;
}

void InterruptGuard::clear()
{
    noted = 0;
}

void InterruptGuard::sleepUntil(std::chrono::steady_clock::time_point moment) const
{
    constexpr std::chrono::milliseconds step{100}; // a signal may come between the look and the sleep
    for (auto now = std::chrono::steady_clock::now(); now < moment && !interrupted();
         now = std::chrono::steady_clock::now())
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(step, moment - now));
}

void InterruptGuard::interrupt()
{
    noted.fetch_add(1); // without a guard nobody looks, and the next one begins anew
}

bool InterruptGuard::stopsWaiting()
{
    return waitingEndsAt > 0 && noted >= waitingEndsAt;
}

bool InterruptGuard::endsProgram()
{
    return ending;
}

} // namespace tessary::ctl
