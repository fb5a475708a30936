#include "client/tessaryctl/reading.h"

#include "client/tessaryctl/failure.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <thread>

namespace tessary::ctl {

using namespace client;

namespace {

[[noreturn]] void throwNoLink()
{
    throw Failure(ExitCode::NoLink, "the instrument's Ethernet is not connected",
        "plug the cable in (virtual instrument: bench/instrument link up); tessaryctl interface shows the "
        "state");
}

} // namespace

Measurement readMeasurement(Controller& controller)
{
    const auto measurement = controller.measurement();
    if (!measurement.has_value())
        throwNoLink();
    return *measurement;
}

Measurement settledMeasurement(Controller& controller, const Measurement& first, double wait)
{
    const auto deadline = std::chrono::steady_clock::now() + Milliseconds(std::lround(wait * 1000));
    Measurement now = first;
    if (now.present && now.bitRate > 0)
        return now;
    while (!(now.present && now.bitRate > 0) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(Milliseconds(250));
        now = readMeasurement(controller);
    }
    if (!now.present)
        return now;
    // A first frame after a silence ends a period that is mostly silence, and the next one drains its virtual
    // buffer by that one's bit rate; the one after that counts.
    std::this_thread::sleep_for(Milliseconds(2600));
    return readMeasurement(controller);
}

std::vector<std::int64_t> readInterArrivalTimes(Controller& controller)
{
    auto times = controller.interArrivalTimes();
    if (!times.has_value())
        throwNoLink();
    removeAbsoluteTimes(*times);
    return *std::move(times);
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
