#include "support/steps.h"

Steps::Steps(RecordedPrograms& programs)
    : m_programs(programs)
    , m_waits([this](std::int64_t us) { passed(us); })
{
    m_programs.forget();
}

std::vector<std::string> Steps::take()
{
    noteCalls();
    m_calls = 0;
    m_programs.forget();
    return std::move(m_steps);
}

void Steps::noteCalls()
{
    const std::vector<std::string> calls = m_programs.calls();
    m_steps.insert(m_steps.end(), calls.begin() + static_cast<std::ptrdiff_t>(m_calls), calls.end());
    m_calls = calls.size();
}

void Steps::passed(std::int64_t us)
{
    noteCalls();
    m_steps.push_back("wait " + std::to_string(us));
    if (onWait)
        onWait(us);
}
