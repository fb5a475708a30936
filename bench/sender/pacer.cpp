#include "pacer.h"

#include <algorithm>

namespace sender {

std::int64_t Pacer::streamTimeNs(std::uint64_t bitsBefore) const
{
    // long double keeps 64 bits on the machines this runs on: exact to the nanosecond for centuries at these
    // rates.
    const long double seconds =
        static_cast<long double>(bitsBefore) / static_cast<long double>(m_bitsPerSecond);
    return static_cast<std::int64_t>(seconds * 1'000'000'000.0L);
}

std::int64_t Pacer::sent(std::uint64_t bitsBefore, std::int64_t nowNs)
{
    const std::int64_t lag = std::max<std::int64_t>(nowNs - dueNs(bitsBefore), 0);
    if (lag > m_maxLagNs)
        m_movedNs += lag;
    return lag;
}

} // namespace sender
