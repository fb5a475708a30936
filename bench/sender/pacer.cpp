#include "pacer.h"

#include <algorithm>

namespace tessary::sender {

std::int64_t Pacer::sent(std::int64_t streamTimeNs, std::int64_t nowNs)
{
    const std::int64_t lag = std::max<std::int64_t>(nowNs - dueNs(streamTimeNs), 0);
    if (lag > m_maxLagNs)
        m_movedNs += lag;
    return lag;
}

} // namespace tessary::sender
