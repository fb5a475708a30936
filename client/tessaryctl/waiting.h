#pragma once

#include "client/tessaryctl/progress.h"

#include <chrono>
#include <string>

namespace tessary::ctl {

/// The moment when waiting ends.
class Deadline
{
public:
    explicit Deadline(double seconds);
    bool isOver() const;

private:
    std::chrono::steady_clock::time_point m_end;
};

/// Seconds that have passed.
double secondsSince(std::chrono::steady_clock::time_point start);

/// Between two questions of the same kind.
void sleepABit();

/// Tells on a terminal what is waited for; the line is gone afterwards.
class WaitingFor
{
public:
    explicit WaitingFor(const std::string& what);
    ~WaitingFor();
    WaitingFor(const WaitingFor&) = delete;
    WaitingFor& operator=(const WaitingFor&) = delete;

private:
    StatusLine m_line;
};

} // namespace tessary::ctl
