#include "client/panel/linestate.h"

#include "client/tessaryctl/clocktime.h"

#include <tuple>
#include <utility>

namespace tessary::panel {

using ctl::ExitCode;

LineState::LineState(Hub& hub, std::string port)
    : m_hub(hub)
    , m_port(std::move(port))
{
    become(false, false, "the instrument has not been asked yet", "");
}

void LineState::answered()
{
    become(true, true, "", "");
}

bool LineState::failed(const ctl::Failure& failure)
{
    const std::string& remedy = failure.remedy();
    switch (failure.code()) {
    case ExitCode::NoInstrument:
    case ExitCode::HungUp:
        become(false, false, failure.what(), remedy);
        return true;
    case ExitCode::TimedOut:
        become(true, false, failure.what(), remedy);
        return false;
    case ExitCode::BadAnswer:
        become(true, true, failure.what(), remedy);
        return false;
    case ExitCode::Internal: // of the operating system: the port is of no further use
        become(false, false, failure.what(), remedy);
        return true;
    case ExitCode::Interrupted:
        return false;
    default: // it answers, but has nothing of what was asked for
        answered();
        return false;
    }
}

void LineState::become(bool open, bool answers, const std::string& error, const std::string& remedy)
{
    const bool same = std::tie(m_open, m_answers, m_error) == std::tie(open, answers, error);
    if (same && !m_hub.valueOf("line").is_null())
        return;
    if (m_since.empty() || m_open != open || m_answers != answers)
        m_since = ctl::isoTime(std::chrono::system_clock::now());
    m_open = open;
    m_answers = answers;
    m_error = error;
    m_remedy = remedy;
    m_hub.set("line",
        {{"port", m_port}, {"open", open}, {"answers", answers},
            {"error", error.empty() ? Json() : Json(error)},
            {"remedy", remedy.empty() ? Json() : Json(remedy)}, {"since", m_since}});
}

} // namespace tessary::panel
