#pragma once

#include <chrono>
#include <functional>
#include <thread>

/// True once the condition holds; false when it has not come to that in ten seconds.
inline bool eventually(const std::function<bool()>& condition)
{
    for (int i = 0; i < 1000; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}
