#pragma once

/// What a measured program and the one who starts it agree on: the program prints "ready", works until its
/// standard input ends, and prints one line of JSON.

/// Processor time of the whole process so far.
struct CpuTime
{
    double user; ///< seconds
    double system; ///< seconds
};

CpuTime cpuTime();

/// Prints "ready" and waits for the end of standard input.
void readyUntilInputEnds();

/// Milliseconds of the monotonic clock.
double nowMs();
