#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace tessary::client {

/// Tells which of the inter-arrival times in an answer to "getiat?" are new since the answer before. The
/// instrument keeps those of the last 1024 frames, and hands out no number by which a frame could be known.
class ArrivalWatch
{
public:
    using Clock = std::chrono::steady_clock;

    /// `times`: microseconds, oldest first, as answered at `answered`. Returns those at their end that the
    /// answer before did not have: all of them when no frame of the answer before is left. When several
    /// numbers of new frames are possible, because the times repeat themselves, it is the number that fits
    /// the time between the answers.
    std::vector<std::int64_t> add(std::vector<std::int64_t> times, Clock::time_point answered);

    /// The capture may have begun anew, or much has been missed: the next answer is new as a whole.
    void forget() { m_last.clear(); }

private:
    std::size_t newIn(const std::vector<std::int64_t>& times, double microseconds) const;

    std::vector<std::int64_t> m_last;
    Clock::time_point m_answered;
};

} // namespace tessary::client
