#include "client/arrivalwatch.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tessary::client {

std::vector<std::int64_t> ArrivalWatch::add(std::vector<std::int64_t> times, Clock::time_point answered)
{
    const double passed = std::chrono::duration<double, std::micro>(answered - m_answered).count();
    const std::size_t fresh = newIn(times, passed);
    m_last = std::move(times);
    m_answered = answered;
    return {m_last.end() - static_cast<std::ptrdiff_t>(fresh), m_last.end()};
}

std::size_t ArrivalWatch::newIn(const std::vector<std::int64_t>& times, double microseconds) const
{
    // With so many new ones, the others are the last ones of the answer before.
    const auto fits = [&](std::size_t fresh) {
        const std::size_t others = times.size() - fresh;
        return others <= m_last.size()
            && std::equal(m_last.end() - static_cast<std::ptrdiff_t>(others), m_last.end(), times.begin());
    };
    std::size_t best = times.size();
    double bestAway = -1;
    double sum = 0;
    for (std::size_t fresh = 0; fresh < times.size(); ++fresh) {
        const double away = std::abs(sum - microseconds);
        if (fits(fresh) && (bestAway < 0 || away < bestAway)) {
            best = fresh;
            bestAway = away;
        }
        sum += static_cast<double>(times[times.size() - 1 - fresh]);
    }
    return best;
}

} // namespace tessary::client
