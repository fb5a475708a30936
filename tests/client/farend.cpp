#include "farend.h"

#include <chrono>

namespace tessary::test {

namespace {

using Clock = std::chrono::steady_clock;

const std::string nameQuery = "!0C_L_IX:";

} // namespace

FarEnd::FarEnd(Answer answer, std::function<void()> late)
    : m_answer(std::move(answer))
    , m_late(std::move(late))
    , m_thread([this] { run(); })
{
}

FarEnd::~FarEnd()
{
    m_stop = true;
    m_thread.join();
}

void FarEnd::run()
{
    while (!m_stop)
        dispatch(collectBurst());
}

std::string FarEnd::collectBurst()
{
    std::string burst = pty.receive(10);
    const auto end = Clock::now() + std::chrono::milliseconds(100);
    while (!burst.empty() && burst.back() != '\n' && Clock::now() < end)
        burst += pty.receive(1);
    return burst;
}

void FarEnd::dispatch(const std::string& burst)
{
    // As the daemon steps: to the byte before the next NUL, also when it stands on a NUL, and two further.
    for (std::size_t at = 0; at < burst.size();) {
        carryOut(burst.substr(at, burst.find('\0', at) - at));
        while (at + 1 < burst.size() && burst[at + 1] != '\0')
            ++at;
        at += 2;
    }
}

void FarEnd::carryOut(const std::string& text)
{
    if (m_late)
        m_late();
    if (text.compare(0, nameQuery.size(), nameQuery) == 0)
        pty.send("Service" + std::to_string(std::stoi(text.substr(nameQuery.size(), 2), nullptr, 16)));
    else if (!text.empty() && text != " ")
        pty.send(m_answer(text.substr(0, text.find('\n'))));
}

} // namespace tessary::test
