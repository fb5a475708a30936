#pragma once

#include "ptypair.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace tessary::test {

/// The far end of the line, which reads bursts as the daemon does: one ends with a read whose last byte is a
/// line feed, or 100 ms after its first byte; a NUL parts its texts, a line feed does not. What comes while a
/// text is carried out lies unread. Each text, up to its first line feed, goes to a function, and what that
/// returns is sent. The names of services are made here, as the daemon makes them.
class FarEnd
{
public:
    using Answer = std::function<std::string(const std::string&)>;

    /// `late` is called before anything is done about a text, a name of a service included, and may take its
    /// time.
    explicit FarEnd(Answer answer, std::function<void()> late = {});
    ~FarEnd();
    FarEnd(const FarEnd&) = delete;
    FarEnd& operator=(const FarEnd&) = delete;

    PtyPair pty;

private:
    void run();
    std::string collectBurst();
    void dispatch(const std::string& burst);
    void carryOut(const std::string& text);

    Answer m_answer;
    std::function<void()> m_late;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace tessary::test
