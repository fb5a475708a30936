#include "client/tessaryctl/waiting.h"

#include "client/tessaryctl/terminal.h"

#include <cmath>
#include <iostream>
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
    if (errorIsTerminal())
        std::cerr << "waiting for " << what << " ..." << std::flush;
}

WaitingFor::~WaitingFor()
{
    if (errorIsTerminal())
        std::cerr << "\r\033[K" << std::flush;
}

} // namespace tessary::ctl
