#pragma once

#include <functional>

/// While the object lives, the time that a burst has taken so far is what the test says, in milliseconds,
/// each time it is asked for: instead of Qt's stopwatch (the test program is linked with its elapsed()
/// wrapped).
class BurstStopwatch
{
public:
    explicit BurstStopwatch(std::function<int()> elapsedMs);
    ~BurstStopwatch();
    BurstStopwatch(const BurstStopwatch&) = delete;
    BurstStopwatch& operator=(const BurstStopwatch&) = delete;
};
