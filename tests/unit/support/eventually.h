#pragma once

#include <chrono>
#include <functional>
#include <thread>

/// How long a test waits for what must happen: it waits so long only when it fails, so this is long enough
/// for a machine that has other work.
constexpr int patienceMs = 60000;

/// Waits until the condition holds; false when it does not come to that.
inline bool eventually(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
