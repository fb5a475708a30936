#pragma once

#include <cstddef>
#include <filesystem>

// What the test's process holds, to be compared before and after something that is to leave nothing behind.

inline std::ptrdiff_t entriesOf(const char* folder)
{
    const std::filesystem::directory_iterator entries(folder);
    return std::distance(begin(entries), end(entries));
}

/// Open descriptors, each time with the one that counts them.
inline std::ptrdiff_t openDescriptors()
{
    return entriesOf("/proc/self/fd");
}

/// Threads. One that was waited for may be counted for another moment.
inline std::ptrdiff_t threads()
{
    return entriesOf("/proc/self/task");
}
