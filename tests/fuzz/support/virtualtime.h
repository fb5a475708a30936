#pragma once

#include <cstdint>

/// The daemon's waits, passed at once: while an input runs, sleeping on the harness's thread only moves a
/// clock of its own, by which the daemon's code measures its time-outs. Other threads keep the real time.
namespace virtualtime {

/// For the time of one input, on one thread.
class Scope
{
public:
    Scope();
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

/// True on a thread and at a time that has the clock of its own.
bool running();

void advance(std::int64_t microseconds);

} // namespace virtualtime
