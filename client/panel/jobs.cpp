#include "client/panel/jobs.h"

#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/interrupt.h"

#include <algorithm>
#include <utility>

namespace tessary::panel {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t mostWaiting = 32;
constexpr std::size_t mostDone = 64;
constexpr std::chrono::milliseconds progressInterval{200};

Json jsonOf(const Job& job)
{
    return {{"id", job.id}, {"words", job.words}, {"who", job.who}};
}

Outcome withdrawn()
{
    Outcome outcome;
    outcome.status = static_cast<int>(ctl::ExitCode::Interrupted);
    outcome.result = {{"error",
        {{"kind", ctl::wordOf(ctl::ExitCode::Interrupted)},
            {"cause", "it was withdrawn before its turn came"}, {"remedy", ""}}}};
    return outcome;
}

} // namespace

Jobs::Jobs(Hub& hub)
    : m_hub(hub)
{
    tell();
}

std::optional<int> Jobs::add(Job job)
{
    const std::lock_guard lock(m_mutex);
    if (m_closed || m_waiting.size() >= mostWaiting)
        return std::nullopt;
    job.id = ++m_lastId;
    m_waiting.push_back(std::move(job));
    tell();
    m_change.notify_all();
    return m_lastId;
}

bool Jobs::end(int id)
{
    const std::lock_guard lock(m_mutex);
    if (m_running.has_value() && m_running->job.id == id) {
        ctl::InterruptGuard::interrupt();
        return true;
    }
    const auto found =
        std::find_if(m_waiting.begin(), m_waiting.end(), [id](const Job& job) { return job.id == id; });
    if (found == m_waiting.end())
        return false;
    const Job job = std::move(*found);
    m_waiting.erase(found);
    finish(job, withdrawn(), 0);
    return true;
}

std::optional<Json> Jobs::awaitDone(int id, const std::function<bool()>& goOn)
{
    std::unique_lock lock(m_mutex);
    const auto done = [&]() -> std::optional<Json> {
        for (const Json& each : m_done) {
            if (each.at("id") == id)
                return each;
        }
        return std::nullopt;
    };
    const auto pending = [&] {
        return (m_running.has_value() && m_running->job.id == id)
            || std::any_of(m_waiting.begin(), m_waiting.end(), [id](const Job& job) { return job.id == id; });
    };
    while (pending() && goOn())
        m_change.wait_for(lock, std::chrono::milliseconds(100));
    return done();
}

std::optional<Job> Jobs::next(std::chrono::milliseconds patience)
{
    std::unique_lock lock(m_mutex);
    m_change.wait_for(lock, patience, [this] { return !m_waiting.empty() || m_woken || m_closed; });
    m_woken = false;
    if (m_waiting.empty() || m_closed)
        return std::nullopt;
    m_running = Running{std::move(m_waiting.front()), std::chrono::system_clock::now(), Clock::now(), "", {}};
    m_waiting.pop_front();
    tell();
    return m_running->job;
}

void Jobs::progress(const std::string& text, std::optional<double> share)
{
    const std::lock_guard lock(m_mutex);
    const auto now = Clock::now();
    if (!m_running.has_value() || (now - m_running->told < progressInterval && share.value_or(0) < 1))
        return;
    m_running->told = now;
    m_running->text = text;
    m_running->share = share;
    tell();
}

void Jobs::ended(const Outcome& outcome)
{
    const std::lock_guard lock(m_mutex);
    const Running running = *std::exchange(m_running, std::nullopt);
    finish(running.job, outcome, std::chrono::duration<double>(Clock::now() - running.start).count());
}

void Jobs::finish(const Job& job, const Outcome& outcome, double seconds)
{
    Json done = jsonOf(job);
    done["status"] = outcome.status;
    done["seconds"] = seconds;
    done["ended"] = ctl::isoTime(std::chrono::system_clock::now());
    done["result"] = outcome.result;
    done["text"] = outcome.text;
    done["remarks"] = outcome.remarks;
    m_done.push_back(done);
    if (m_done.size() > mostDone)
        m_done.pop_front();
    tell();
    m_hub.set("done", done);
    m_change.notify_all();
}

void Jobs::wake()
{
    const std::lock_guard lock(m_mutex);
    m_woken = true;
    m_change.notify_all();
}

void Jobs::close()
{
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    m_waiting.clear();
    ctl::InterruptGuard::interrupt();
    tell();
    m_change.notify_all();
}

void Jobs::tell()
{
    Json waiting = Json::array();
    for (const Job& job : m_waiting)
        waiting.push_back(jsonOf(job));
    Json running;
    if (m_running.has_value()) {
        running = jsonOf(m_running->job);
        running["since"] = ctl::isoTime(m_running->since);
        running["progress"] = {{"text", m_running->text},
            {"share", m_running->share.has_value() ? Json(*m_running->share) : Json()}};
    }
    m_hub.set("job", {{"running", running}, {"waiting", waiting}});
}

} // namespace tessary::panel
