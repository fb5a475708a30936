#include "client/panel/worker.h"

#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/program.h"
#include "client/tessaryctl/signalsblocked.h"

#include <set>

namespace tessary::panel {

using ctl::ExitCode;
using ctl::Failure;

namespace {

/// These neither end a measurement nor what plays.
bool leavesTheSourceAlone(const std::string& command)
{
    static const std::set<std::string> quiet{"", "info", "status", "measure", "iat", "server", "interface",
        "interface status", "ping", "t2mi-frame", "version", "schema", "command", "raw", "ebs status",
        "ebs info", "ebs name", "ebs version", "ebs audio", "record status", "dab send"};
    return quiet.count(command) != 0;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

} // namespace

Worker::Worker(const Parts& parts, std::string port, bool virtualOne)
    : m_parts(parts)
    , m_port(std::move(port))
    , m_watch(parts.hub, parts.history, m_session, m_port, virtualOne)
    , m_line(parts.hub, m_port)
{
    m_session.tap([&log = m_parts.lineLog](client::SerialLine::Direction direction, std::string_view bytes) {
        log.add(direction, bytes);
    });
    const ctl::SignalsBlocked blocked; // signals are the main thread's business
    m_thread = std::thread([this] { run(); });
}

Worker::~Worker()
{
    m_stop = true;
    m_parts.jobs.close();
    m_thread.join();
}

void Worker::measure(bool on)
{
    m_wish = on ? Wish::On : Wish::Off;
    m_parts.jobs.wake();
}

void Worker::run()
{
    const ctl::InterruptGuard guard(1); // what the destructor interrupts
    while (!m_stop) {
        const auto job = m_parts.jobs.next(m_watch.pause());
        if (m_stop)
            return;
        const Wish wish = m_wish.exchange(Wish::None);
        if (wish != Wish::None)
            m_watch.measure(wish == Wish::On);
        if (job.has_value())
            carryOut(*job);
        else
            attempt([this] { m_watch.poll(); });
    }
}

void Worker::attempt(const std::function<void()>& what)
{
    try {
        what();
        m_line.answered();
    } catch (const std::exception&) {
        const Failure failure = ctl::failureInFlight(m_port);
        m_watch.lost(failure);
        m_watch.forgetController();
        m_parts.metrics.lineFailed(failure.code());
        if (m_line.failed(failure)) {
            m_session.close();
            m_watch.lineClosed();
        }
    }
}

void Worker::carryOut(const Job& job)
{
    m_watch.forgetController();
    const auto start = std::chrono::steady_clock::now();
    Outcome outcome;
    std::string command = job.words.empty() ? "" : job.words.front();
    if (job.task) {
        outcome = outcomeOfTask(job);
    } else {
        outcome = runCommandLine(
            m_session, m_port, job.words, [this](const std::string& text, std::optional<double> share) {
                m_parts.jobs.progress(text, share);
            });
        command = commandOf(job.words);
        follow(command, job.words, outcome);
    }
    m_watch.forgetController();
    noteOutcome(outcome);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    m_parts.metrics.commandEnded(command, outcome.status, seconds);
    m_parts.jobs.ended(outcome);
}

Outcome Worker::outcomeOfTask(const Job& job)
{
    try {
        const ctl::InterruptGuard guard(1);
        Outcome outcome;
        outcome.result = job.task(m_watch.controller());
        return outcome;
    } catch (const std::exception&) {
        return outcomeOf(ctl::failureInFlight(m_port));
    }
}

/// A job tells of the line, too.
void Worker::noteOutcome(const Outcome& outcome)
{
    const auto code = static_cast<ExitCode>(outcome.status);
    if (code == ExitCode::Success || !outcome.result.contains("error"))
        return;
    const Json& error = outcome.result.at("error");
    const bool ofTheLine =
        code == ExitCode::NoInstrument || code == ExitCode::HungUp || code == ExitCode::TimedOut;
    if (!ofTheLine)
        return;
    if (m_line.failed(Failure(code, error.value("cause", ""), error.value("remedy", "")))) {
        m_session.close();
        m_watch.lineClosed();
    }
}

void Worker::follow(const std::string& command, const std::vector<std::string>& words, const Outcome& outcome)
{
    const bool done = outcome.status == static_cast<int>(ExitCode::Success);
    Hub& hub = m_parts.hub;
    if (!leavesTheSourceAlone(command)) {
        if (m_watch.measuring())
            m_watch.measure(false);
        if (command != "record start" && command != "export")
            hub.set("play", nullptr);
    }
    if (command == "measure" || command == "iat")
        hub.set("play", nullptr); // measuring stops playing
    if (command == "scan")
        m_watch.setRecording(false);
    if (command.rfind("record", 0) == 0 && outcome.result.contains("recording"))
        m_watch.setRecording(outcome.result.at("recording").get<bool>());
    if (done && (command == "scan" || command == "info"))
        hub.set("stream", outcome.result);
    if (done && command == "play")
        hub.set("play", outcome.result);
    if (command == "server" || command == "scan")
        m_watch.serverChanged();
    if (command.rfind("interface", 0) == 0 || command == "update")
        m_watch.askAnew();
    if (done && !command.empty() && command != "info" && command != "status" && command != "schema")
        addMark(hub, joined(words));
}

} // namespace tessary::panel
