#pragma once

#include <algorithm>
#include <cstdint>

namespace tessary::sender {

/// When continuity errors are due: `perSecond` a second, evenly spread, each in the middle of its share of
/// the second (2 per second: at 250 ms and 750 ms), so that whole seconds hold exactly that many. They begin
/// `fromNs` after the stream's start and end `forNs` later (0: never).
class ErrorSchedule
{
public:
    explicit ErrorSchedule(unsigned perSecond, std::int64_t fromNs = 0, std::int64_t forNs = 0)
        : m_perSecond(perSecond)
        , m_fromNs(fromNs)
        , m_forNs(forNs)
    {
    }

    /// Errors due up to and including `streamTimeNs` after the start.
    std::uint64_t dueUntil(std::int64_t streamTimeNs) const
    {
        if (m_perSecond == 0 || streamTimeNs < m_fromNs)
            return 0;
        const std::int64_t since = streamTimeNs - m_fromNs;
        const auto time = static_cast<std::uint64_t>(m_forNs > 0 ? std::min(since, m_forNs) : since);
        const auto halves = time / 1'000'000'000U * m_perSecond * 2
            + time % 1'000'000'000U * m_perSecond * 2 / 1'000'000'000U;
        return (halves + 1) / 2;
    }

private:
    unsigned m_perSecond;
    std::int64_t m_fromNs;
    std::int64_t m_forNs;
};

} // namespace tessary::sender
