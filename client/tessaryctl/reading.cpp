#include "client/tessaryctl/reading.h"

#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/link.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <thread>

namespace tessary::ctl {

using namespace client;

std::string textOfServer(const InstrumentMemory& memory)
{
    const auto& server = memory.server();
    return server.has_value() ? server->url
                              : "not known: it was not set from here; tessaryctl server sets it";
}

PeriodWatch::Reading readMeasurement(Controller& controller)
{
    const auto asked = PeriodWatch::Clock::now();
    const auto measurement = controller.measurement();
    if (!measurement.has_value())
        throwNoLink();
    return {asked, PeriodWatch::Clock::now(), *measurement};
}

Measurement measureWholePeriod(Controller& controller, double wait)
{
    constexpr Milliseconds longestSettling{10000};
    const auto deadline = PeriodWatch::Clock::now() + Milliseconds(std::lround(wait * 1000));
    PeriodWatch watch;
    for (;;) {
        const auto reading = readMeasurement(controller);
        const auto state = watch.add(reading);
        if (state == PeriodWatch::State::Valid
            || (state == PeriodWatch::State::Absent && reading.answered >= deadline))
            return reading.figures;
        if (reading.answered >= deadline + longestSettling)
            throw Failure(ExitCode::Nothing, "the stream comes and goes: no whole second of it was measured",
                "look at its course: tessaryctl measure --watch");
        std::this_thread::sleep_for(readingInterval);
    }
}

std::vector<std::int64_t> intervalsIn(std::vector<std::int64_t> times)
{
    // The first frame since the capture's start came after the last one of the capture before.
    constexpr std::size_t kept = 1024;
    if (!times.empty() && times.size() < kept)
        times.erase(times.begin());
    removeAbsoluteTimes(times);
    return times;
}

std::vector<std::int64_t> readInterArrivalTimes(Controller& controller)
{
    auto times = controller.interArrivalTimes();
    if (!times.has_value())
        throwNoLink();
    return intervalsIn(*std::move(times));
}

Json jsonOf(const Measurement& measurement)
{
    Json value;
    value["present"] = measurement.present;
    value["bit_rate"] = measurement.bitRate;
    value["delay_factor_ms"] = measurement.delayFactorMs;
    value["continuity_errors"] = measurement.continuityErrors;
    value["packet_size"] = measurement.packetSize;
    value["packets_per_datagram"] = measurement.packetsPerDatagram;
    return value;
}

Json jsonOf(const PeriodWatch::Total& total)
{
    Json value;
    value["periods"] = total.periods;
    value["continuity_errors"] = total.errors;
    value["exact"] = total.exact();
    value["periods_missed_at_most"] = total.missed;
    value["errors_unsure"] = total.unsure;
    return value;
}

std::string textOf(const PeriodWatch::Total& total)
{
    std::string text =
        (total.missed > 0 ? "at least " : "") + std::to_string(total.errors) + " since the start";
    if (total.missed > 0)
        text += ", up to " + std::to_string(total.missed) + " periods missed";
    if (total.unsure > 0)
        text += ", " + std::to_string(total.unsure) + " unsure (periods that look alike)";
    return text;
}

Json jsonOf(const InterArrivalStatistics& statistics)
{
    Json value;
    value["count"] = statistics.count;
    value["mean_us"] = statistics.mean;
    value["deviation_us"] = statistics.deviation;
    value["shortest_us"] = statistics.shortest;
    value["longest_us"] = statistics.longest;
    value["median_us"] = statistics.median;
    value["percentile_95_us"] = statistics.percentile95;
    value["percentile_99_us"] = statistics.percentile99;
    return value;
}

} // namespace tessary::ctl
