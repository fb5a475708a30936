#pragma once

#include "client/measurement.h"
#include "client/tessaryctl/context.h"

#include <cstdint>
#include <vector>

namespace tessary::ctl {

/// One measurement; throws Failure NoLink when the Ethernet is down.
client::Measurement readMeasurement(client::Controller& controller);

/// A measurement that means something. `first` is the reading that started the capture: when it shows a
/// stream, the capture was running before, and it is taken as it is. Otherwise waits for the stream at most
/// `wait` seconds and then until the periods have passed that the start spoils. Not present when no stream
/// came.
client::Measurement settledMeasurement(
    client::Controller& controller, const client::Measurement& first, double wait);

/// The inter-arrival times that the instrument has, those without an interval left out; throws Failure
/// NoLink.
std::vector<std::int64_t> readInterArrivalTimes(client::Controller& controller);

Json jsonOf(const client::Measurement& measurement);
Json jsonOf(const client::InterArrivalStatistics& statistics);

} // namespace tessary::ctl
