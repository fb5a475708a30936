#pragma once

#include <cstdint>
#include <limits>

// 64-bit arithmetic of the reception statistics that stops at the ends of the range instead of overflowing:
// time stamps and lengths come from the wire and from clocks that may be set while a period runs.

/// 128-bit intermediate, so that a product may be divided before it is narrowed.
__extension__ typedef __int128 WideInteger;

/// No stream of a working network comes here: kept out of the way of the capture's callback, whose few instructions
/// the processor's caches have to find again for each frame.
[[gnu::cold]] [[gnu::noinline]] inline std::int64_t clampToInt64(WideInteger value)
{
    if (value > std::numeric_limits<std::int64_t>::max())
        return std::numeric_limits<std::int64_t>::max();
    if (value < std::numeric_limits<std::int64_t>::min())
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

inline std::int64_t clampedAdd(std::int64_t a, std::int64_t b)
{
    std::int64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? clampToInt64(WideInteger(a) + b) : sum;
}

inline std::int64_t clampedSubtract(std::int64_t a, std::int64_t b)
{
    std::int64_t difference = 0;
    return __builtin_sub_overflow(a, b, &difference) ? clampToInt64(WideInteger(a) - b) : difference;
}

/// a * b / divisor, truncated towards zero. `divisor` is above zero. The products of real streams fit into 64
/// bits, whose division costs a fraction of that of 128.
inline std::int64_t clampedScale(std::int64_t a, std::int64_t b, std::int64_t divisor)
{
    std::int64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? clampToInt64(WideInteger(a) * b / divisor)
                                                  : product / divisor;
}
