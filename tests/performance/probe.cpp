#include "probe.h"

#include <chrono>
#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

namespace {

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

} // namespace

CpuTime cpuTime()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return {seconds(usage.ru_utime), seconds(usage.ru_stime)};
}

void readyUntilInputEnds()
{
    std::puts("ready");
    std::fflush(stdout);
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) > 0) { }
}

double nowMs()
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
