#pragma once

#include <cstdint>

namespace sender {

/// The sending schedule: when each datagram is due, from the bits that go before it.
///
/// Due times are absolute, so a late datagram does not move the later ones: the sender catches up by sending
/// what is due at once. A lag beyond `maxLagNs` (the machine slept) is not caught up, because that would be a
/// flood: the schedule moves. Times are nanoseconds of any one clock. Reads no clock itself.
class Pacer
{
public:
    static constexpr std::int64_t DefaultMaxLagNs = 200'000'000;

    /// `bitsPerSecond`: transport stream bits (188 or 204 bytes a packet, no headers), greater than 0.
    explicit Pacer(double bitsPerSecond, std::int64_t maxLagNs = DefaultMaxLagNs)
        : m_bitsPerSecond(bitsPerSecond)
        , m_maxLagNs(maxLagNs)
    {
    }

    /// The first datagram goes at `nowNs`.
    void start(std::int64_t nowNs) { m_startNs = nowNs; }

    /// Stream time in ns at which a datagram that `bitsBefore` bits precede is due, counted from the start.
    std::int64_t streamTimeNs(std::uint64_t bitsBefore) const;

    /// Clock time at which it is due, lags included that were not caught up.
    std::int64_t dueNs(std::uint64_t bitsBefore) const
    {
        return m_startNs + m_movedNs + streamTimeNs(bitsBefore);
    }

    /// Call when a datagram goes out at `nowNs`; moves the schedule if the lag is beyond the limit. Returns
    /// the lag in ns, never below 0.
    std::int64_t sent(std::uint64_t bitsBefore, std::int64_t nowNs);

    std::int64_t movedNs() const { return m_movedNs; } ///< sum of the lags that were not caught up

private:
    double m_bitsPerSecond;
    std::int64_t m_maxLagNs;
    std::int64_t m_startNs = 0;
    std::int64_t m_movedNs = 0;
};

} // namespace sender
