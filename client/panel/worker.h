#pragma once

#include "client/panel/commandline.h"
#include "client/panel/instrumentwatch.h"
#include "client/panel/jobs.h"
#include "client/panel/linelog.h"
#include "client/panel/linestate.h"
#include "client/panel/metrics.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace tessary::panel {

/// Talks with the instrument in a thread of its own, one question at a time: carries out the jobs, and asks on its own
/// for what changes. A line that fails is opened anew until it works.
class Worker
{
public:
    struct Parts
    {
        Hub& hub;
        Jobs& jobs;
        History& history;
        LineLog& lineLog;
        Metrics& metrics;
    };

    /// `parts` are borrowed. `virtualOne`: the port is that of a virtual instrument.
    Worker(const Parts& parts, std::string port, bool virtualOne);
    /// Ends what is being done.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void measure(bool on);

private:
    enum class Wish { None, On, Off };

    void run();
    void attempt(const std::function<void()>& what);
    void carryOut(const Job& job);
    Outcome outcomeOfTask(const Job& job);
    void noteOutcome(const Outcome& outcome);
    /// What the others see of a command line that has been carried out.
    void follow(const std::string& command, const std::vector<std::string>& words, const Outcome& outcome);

    Parts m_parts;
    std::string m_port;
    ctl::Session m_session;
    InstrumentWatch m_watch;
    LineState m_line;
    std::atomic<Wish> m_wish{Wish::None};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace tessary::panel
