#pragma once

#include <cstdint>

namespace tessary::sender {

/// The sending schedule: when each datagram is due, from its time in the stream.
///
/// Due times are absolute, so a late datagram does not move the later ones: the sender catches up by sending
/// what is due at once. A lag beyond `maxLagNs` (the machine slept) is not caught up, because that would be a
/// flood: the schedule moves. Times are nanoseconds of any one clock. Reads no clock itself.
class Pacer
{
public:
    static constexpr std::int64_t DefaultMaxLagNs = 200'000'000;

    explicit Pacer(std::int64_t maxLagNs = DefaultMaxLagNs)
        : m_maxLagNs(maxLagNs)
    {
    }

    /// Stream time 0 is at `nowNs`.
    void start(std::int64_t nowNs) { m_startNs = nowNs; }

    /// Clock time at which a datagram is due, lags included that were not caught up.
    std::int64_t dueNs(std::int64_t streamTimeNs) const { return m_startNs + m_movedNs + streamTimeNs; }

    /// Call when a datagram goes out at `nowNs`; moves the schedule if the lag is beyond the limit. Returns
    /// the lag in ns, never below 0.
    std::int64_t sent(std::int64_t streamTimeNs, std::int64_t nowNs);

    std::int64_t movedNs() const { return m_movedNs; } ///< sum of the lags that were not caught up

private:
    std::int64_t m_maxLagNs;
    std::int64_t m_startNs = 0;
    std::int64_t m_movedNs = 0;
};

} // namespace tessary::sender
