#pragma once

#include <cstdint>
#include <functional>

/// The daemon's waits, passed at once: meanwhile, sleeping on the test's thread only moves a clock of its
/// own, by which the daemon's code measures its time-outs. Other threads keep the real time. A program with
/// this is linked with usleep, sleep and time wrapped.
namespace virtualtime {

/// For as long as the object lives, on one thread.
class Scope
{
public:
    /// `onWait`, if any, is told each wait in µs, when it has passed.
    explicit Scope(std::function<void(std::int64_t)> onWait = {});
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

/// True on a thread and at a time that has the clock of its own.
bool running();

/// Any thread.
void advance(std::int64_t microseconds);

/// From another thread: returns once the code on the clock's thread has looked at it twice more, so that it
/// has noted the present time for what it did before. False when it does not look.
bool waitUntilNoted();

} // namespace virtualtime
