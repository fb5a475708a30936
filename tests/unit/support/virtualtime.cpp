#include "virtualtime.h"

#include "eventually.h"

#include <atomic>
#include <ctime>
#include <unistd.h>

namespace {

thread_local bool active = false;
std::atomic<std::int64_t> now{1'700'000'000'000'000}; // µs
std::atomic<unsigned> looks{0};
std::function<void(std::int64_t)> told;

void pass(std::int64_t microseconds)
{
    now += microseconds;
    if (told)
        told(microseconds);
}

} // namespace

namespace virtualtime {

Scope::Scope(std::function<void(std::int64_t)> onWait)
{
    told = std::move(onWait);
    active = true;
}

Scope::~Scope()
{
    active = false;
    told = nullptr;
}

bool running()
{
    return active;
}

void advance(std::int64_t microseconds)
{
    now += microseconds;
}

bool waitUntilNoted()
{
    const unsigned before = looks;
    return eventually([before] { return looks - before >= 2; });
}

} // namespace virtualtime

// The names are what the linker makes of the calls.
extern "C" {

int __real_usleep(useconds_t microseconds);
unsigned __real_sleep(unsigned seconds);
std::time_t __real_time(std::time_t* result);

int __wrap_usleep(useconds_t microseconds)
{
    if (!active)
        return __real_usleep(microseconds);
    pass(microseconds);
    return 0;
}

unsigned __wrap_sleep(unsigned seconds)
{
    if (!active)
        return __real_sleep(seconds);
    pass(std::int64_t{1000000} * seconds);
    return 0;
}

std::time_t __wrap_time(std::time_t* result)
{
    if (!active)
        return __real_time(result);
    ++looks;
    if (result != nullptr)
        *result = now / 1000000;
    return now / 1000000;
}
}
