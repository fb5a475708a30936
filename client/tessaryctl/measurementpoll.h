#pragma once

#include "client/arrivalwatch.h"
#include "client/controller.h"
#include "client/periodwatch.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace tessary::ctl {

/// Follows the measurement from reading to reading (one each readingInterval), and asks for the inter-arrival times
/// once a period.
class MeasurementPoll
{
public:
    struct News
    {
        client::PeriodWatch::Reading reading;
        client::PeriodWatch::State state = client::PeriodWatch::State::Absent;
        client::PeriodWatch::Total total; ///< since the start
        /// Microseconds, when a period has ended: all that the instrument has, and those that are new since the
        /// period before.
        std::optional<std::vector<std::int64_t>> times;
        std::vector<std::int64_t> newTimes;
    };

    /// Throws Failure NoLink.
    News read(client::Controller& controller);

private:
    client::PeriodWatch m_watch;
    long m_periods = 0; ///< whose inter-arrival times have been asked for
    client::ArrivalWatch m_arrivals;
};

} // namespace tessary::ctl
