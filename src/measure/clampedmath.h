#pragma once

#include <cstdint>
#include <limits>

// 64-bit arithmetic of the reception statistics that stops at the ends of the range instead of overflowing:
// time stamps and lengths come from the wire and from clocks that may be set while a period runs.

/// 128-bit intermediate, so that a product may be divided before it is narrowed.
__extension__ typedef __int128 WideInteger;

inline std::int64_t clampToInt64(WideInteger value)
{
    if (value > std::numeric_limits<std::int64_t>::max())
        return std::numeric_limits<std::int64_t>::max();
    if (value < std::numeric_limits<std::int64_t>::min())
        return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

inline std::int64_t clampedAdd(std::int64_t a, std::int64_t b)
{
    return clampToInt64(WideInteger(a) + b);
}

inline std::int64_t clampedSubtract(std::int64_t a, std::int64_t b)
{
    return clampToInt64(WideInteger(a) - b);
}

/// a * b / divisor, truncated towards zero. `divisor` is not zero.
inline std::int64_t clampedScale(std::int64_t a, std::int64_t b, std::int64_t divisor)
{
    return clampToInt64(WideInteger(a) * b / divisor);
}
