#pragma once

#include "client/panel/hub.h"
#include "client/tessaryctl/clocktime.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tessary::panel {

/// Something that somebody wants of the instrument.
struct Job
{
    /// For what is no command line: gives the job's result; may throw as sub-commands do.
    using Task = std::function<Json(client::Controller&)>;

    int id = 0;
    std::vector<std::string> words; ///< a command line of tessaryctl, or what the task is called
    Task task; ///< empty for a command line
    std::string who; ///< wants it
};

/// What became of it.
struct Outcome // NOLINT(bugprone-exception-escape): moving JSON asserts, and does not throw
{
    int status = 0; ///< as tessaryctl's exit status
    Json result; ///< what --json prints, an array when it is several objects; null without
    std::string text; ///< what is printed and no JSON, such as help
    std::vector<std::string> remarks;
};

/// Those that wait for the line, the one that has it, and what became of the last ones; told under "job" and "done". May
/// be used from any thread.
class Jobs
{
public:
    explicit Jobs(Hub& hub);

    /// The job's number; nothing when too many wait.
    std::optional<int> add(Job job);
    /// Withdraws one that waits, or interrupts the one that runs as Ctrl-C does; false when it has ended.
    bool end(int id);
    /// The "done" of one that has ended; waits for it. Nothing when it is not known (any more), or nobody waits longer:
    /// `goOn` is asked ten times a second.
    std::optional<Json> awaitDone(int id, const std::function<bool()>& goOn);

    /// For the one that carries them out: the next one, which then runs. Waits at most so long.
    std::optional<Job> next(std::chrono::milliseconds patience);
    void progress(const std::string& text, std::optional<double> share);
    void ended(const Outcome& outcome);
    /// Ends next()'s waiting.
    void wake();
    /// No more of them: those that wait are withdrawn, the running one is interrupted.
    void close();

private:
    struct Running
    {
        Job job;
        ctl::WallTime since;
        std::chrono::steady_clock::time_point start;
        std::string text;
        std::optional<double> share;
        std::chrono::steady_clock::time_point told{};
    };

    void tell();
    void finish(const Job& job, const Outcome& outcome, double seconds);

    Hub& m_hub;
    std::mutex m_mutex;
    std::condition_variable m_change;
    std::deque<Job> m_waiting;
    std::optional<Running> m_running;
    std::deque<Json> m_done;
    int m_lastId = 0;
    bool m_woken = false;
    bool m_closed = false;
};

} // namespace tessary::panel
