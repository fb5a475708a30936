#pragma once

#include <cstdint>

namespace tessary::sender {

/// When continuity errors are due: `perSecond` a second, evenly spread, each in the middle of its share of
/// the second (2 per second: at 250 ms and 750 ms), so that whole seconds hold exactly that many.
class ErrorSchedule
{
public:
    explicit ErrorSchedule(unsigned perSecond)
        : m_perSecond(perSecond)
    {
    }

    /// Errors due up to and including `streamTimeNs` after the start.
    std::uint64_t dueUntil(std::int64_t streamTimeNs) const
    {
        if (m_perSecond == 0 || streamTimeNs < 0)
            return 0;
        const auto halves = static_cast<std::uint64_t>(streamTimeNs) / 1'000'000'000U * m_perSecond * 2
            + static_cast<std::uint64_t>(streamTimeNs) % 1'000'000'000U * m_perSecond * 2 / 1'000'000'000U;
        return (halves + 1) / 2;
    }

private:
    unsigned m_perSecond;
};

} // namespace tessary::sender
