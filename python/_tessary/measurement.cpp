// How a stream arrives: measurement, its periods, inter-arrival times.
#include "client/measurement.h"

#include "client/arrivalwatch.h"
#include "client/periodwatch.h"
#include "python/_tessary/bindings.h"
#include "python/_tessary/line.h"
#include "python/_tessary/value.h"

namespace tessary::python {

using namespace client;

namespace {

const char* wordOf(PeriodWatch::State state)
{
    switch (state) {
    case PeriodWatch::State::Absent:
        return "absent";
    case PeriodWatch::State::Settling:
        return "settling";
    case PeriodWatch::State::Valid:
        break;
    }
    return "valid";
}

/// time.monotonic() counts on the same clock.
std::chrono::steady_clock::time_point moment(double seconds)
{
    return std::chrono::steady_clock::time_point(
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::duration<double>(seconds)));
}

void bindFigures(py::module_& module)
{
    Value<Measurement>(module, "Measurement")
        .field("present", &Measurement::present)
        .field("bit_rate", &Measurement::bitRate)
        .field("delay_factor_ms", &Measurement::delayFactorMs)
        .field("continuity_errors", &Measurement::continuityErrors)
        .field("packet_size", &Measurement::packetSize)
        .field("packets_per_datagram", &Measurement::packetsPerDatagram)
        .python()
        .def("transport_rate", &transportRate, py::kw_only(), py::arg("rtp"));
    using Statistics = InterArrivalStatistics;
    Value<Statistics>(module, "InterArrivalStatistics")
        .field("count", &Statistics::count)
        .field("shortest_us", &Statistics::shortest)
        .field("longest_us", &Statistics::longest)
        .field("mean_us", &Statistics::mean)
        .field("deviation_us", &Statistics::deviation)
        .field("median_us", &Statistics::median)
        .field("percentile_95_us", &Statistics::percentile95)
        .field("percentile_99_us", &Statistics::percentile99);
    module.def("statistics_of", &statisticsOf, py::arg("times"));
}

void bindWatches(py::module_& module)
{
    using Total = PeriodWatch::Total;
    Value<Total>(module, "PeriodTotal")
        .field("periods", &Total::periods)
        .field("continuity_errors", &Total::errors)
        .computed("exact", [](const Total& t) { return t.exact(); })
        .field("periods_missed_at_most", &Total::missed)
        .field("errors_unsure", &Total::unsure);
    py::class_<PeriodWatch>(module, "PeriodWatch")
        .def(py::init<>())
        .def(
            "add",
            [](PeriodWatch& watch, double asked, double answered, const Measurement& figures) {
                return wordOf(watch.add({moment(asked), moment(answered), figures}));
            },
            py::arg("asked"), py::arg("answered"), py::arg("figures"))
        .def_property_readonly("state", [](const PeriodWatch& watch) { return wordOf(watch.state()); })
        .def_property_readonly("total", &PeriodWatch::total);
    py::class_<ArrivalWatch>(module, "ArrivalWatch")
        .def(py::init<>())
        .def(
            "add",
            [](ArrivalWatch& watch, std::vector<std::int64_t> times, double answered) {
                return watch.add(std::move(times), moment(answered));
            },
            py::arg("times"), py::arg("answered"))
        .def("forget", &ArrivalWatch::forget);
}

} // namespace

void bindMeasurement(py::module_& module)
{
    bindFigures(module);
    bindWatches(module);
}

} // namespace tessary::python
