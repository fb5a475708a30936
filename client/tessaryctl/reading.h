#pragma once

#include "client/measurement.h"
#include "client/periodwatch.h"
#include "client/tessaryctl/context.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessary::ctl {

/// What to do when no stream arrives.
inline constexpr const char* noStreamRemedy =
    "check that the stream is sent, and that tessaryctl server has its address, port and protocol";

/// For a person, which stream is measured: the instrument does not tell it.
std::string textOfServer(const InstrumentMemory& memory);

/// One measurement and when it was taken; throws Failure NoLink when the Ethernet is down.
client::PeriodWatch::Reading readMeasurement(client::Controller& controller);

/// So often the measurement has to be read for its periods to be told apart.
inline constexpr client::Milliseconds readingInterval{200};

/// The figures of a whole period of the stream server that is set, whatever was measured before: three to
/// five seconds after the stream is there. Waits for it at most `wait` seconds; not present when none came.
/// Throws Failure Nothing when it comes and goes.
client::Measurement measureWholePeriod(client::Controller& controller, double wait);

/// Of an answer to "getiat?" those that are intervals: without one that reaches back before the capture's
/// start.
std::vector<std::int64_t> intervalsIn(std::vector<std::int64_t> times);

/// The inter-arrival times that the instrument has, but for one that reaches back before the capture's start;
/// throws Failure NoLink.
std::vector<std::int64_t> readInterArrivalTimes(client::Controller& controller);

Json jsonOf(const client::Measurement& measurement);
Json jsonOf(const client::PeriodWatch::Total& total);
/// "60 since the start", and what is not sure of it.
std::string textOf(const client::PeriodWatch::Total& total);
Json jsonOf(const client::InterArrivalStatistics& statistics);

} // namespace tessary::ctl
