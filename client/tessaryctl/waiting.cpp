#include "client/tessaryctl/waiting.h"

#include <cmath>
#include <thread>

namespace tessary::ctl {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

Deadline::Deadline(double seconds)
    : m_end(Clock::now() + Milliseconds(std::lround(seconds * 1000)))
{
}

bool Deadline::isOver() const
{
    return Clock::now() >= m_end;
}

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void sleepABit()
{
    std::this_thread::sleep_for(Milliseconds(200));
}

WaitingFor::WaitingFor(const std::string& what)
{
    m_line.show("waiting for " + what + " ...");
}

WaitingFor::~WaitingFor() = default;

} // namespace tessary::ctl
