// Inter-arrival times of the stream's datagrams: iat.
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/groups.h"
#include "client/tessaryctl/jsonvalue.h"
#include "client/tessaryctl/plot.h"
#include "client/tessaryctl/portload.h"
#include "client/tessaryctl/reading.h"
#include "client/tessaryctl/terminal.h"

#include <cmath>
#include <ostream>
#include <thread>

namespace tessary::ctl {

using namespace client;

namespace {

struct IatOptions
{
    std::vector<std::string> server;
    bool plot = false;
    std::size_t bins = 20;
    std::string png;
    std::string svg;
    double wait = 5;
};

/// What has been measured.
struct Arrivals
{
    std::vector<std::int64_t> times; ///< between datagrams, µs
    InterArrivalStatistics statistics;
    std::optional<double> received; ///< bit/s of all that came in meanwhile
};

/// As many as the instrument keeps, or what there is when the time is over.
std::vector<std::int64_t> gatherTimes(Controller& controller, double wait)
{
    constexpr std::size_t kept = 1024;
    const auto deadline = std::chrono::steady_clock::now() + Milliseconds(std::lround(wait * 1000));
    auto times = readInterArrivalTimes(controller);
    while (times.size() < kept - 1 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(Milliseconds(300));
        times = readInterArrivalTimes(controller);
    }
    return times;
}

/// What comes in since `load` began, once that is long enough to tell a rate of.
std::optional<double> receivedSince(const PortLoad& load)
{
    std::this_thread::sleep_until(load.since() + Milliseconds(1000));
    return load.bitRate();
}

/// Bits per second of the stream that these are of; nothing when its datagrams hold no whole packets. The 12
/// bytes that a frame with RTP has more are no matter here.
std::optional<double> streamRate(Controller& controller, const InterArrivalStatistics& statistics)
{
    const auto bytes = frameBytes(readMeasurement(controller).figures, false);
    if (!bytes.has_value() || statistics.mean <= 0)
        return std::nullopt;
    return 8e6 * static_cast<double>(*bytes) / statistics.mean;
}

void printFigures(
    std::ostream& out, const InstrumentMemory& memory, const Arrivals& arrivals, const IatOptions& options)
{
    out << textOfServer(memory) << '\n' << statisticsLine(arrivals.statistics) << '\n';
    if (options.plot)
        out << '\n' << textHistogram(arrivals.times, options.bins, terminalWidth());
    for (const auto& file : {options.png, options.svg}) {
        if (!file.empty())
            out << "plot: " << file << '\n';
    }
    out << std::flush;
}

Json jsonOfFigures(const InstrumentMemory& memory, const Arrivals& arrivals, const IatOptions& options)
{
    Json value = jsonOfServer(memory);
    value.update(jsonOf(arrivals.statistics));
    value["received_bit_rate"] = roundedOrNull(arrivals.received);
    value["times_us"] = arrivals.times;
    Json histogram = Json::array();
    for (const auto& bin : histogramOf(arrivals.times, options.bins))
        histogram.push_back({{"from_us", bin.from}, {"to_us", bin.to}, {"count", bin.count}});
    value["histogram"] = histogram;
    return value;
}

Arrivals measureArrivals(Controller& controller, double wait)
{
    const PortLoad load(controller);
    Arrivals arrivals;
    arrivals.times = gatherTimes(controller, wait);
    if (arrivals.times.empty())
        throw Failure(
            ExitCode::Nothing, "no datagram arrived within " + fixed(wait, 0) + " s", noStreamRemedy);
    arrivals.statistics = statisticsOf(arrivals.times);
    arrivals.received = receivedSince(load);
    return arrivals;
}

void iat(Context& context, const IatOptions& options)
{
    Controller& controller = context.controller();
    changeServer(context, controller, options.server);
    const Arrivals arrivals = measureArrivals(controller, options.wait);
    const Plot plot{"Inter-arrival times", arrivals.times};
    if (!options.png.empty())
        writePng(plot, options.png);
    if (!options.svg.empty())
        writeSvg(plot, options.svg);
    if (context.json())
        context.print(jsonOfFigures(context.memory(), arrivals, options));
    else
        printFigures(context.out(), context.memory(), arrivals, options);
    if (const auto stream = streamRate(controller, arrivals.statistics); stream.has_value())
        remarkOnOtherTraffic(context, arrivals.received, *stream);
}

} // namespace

void addIat(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(
        app, context, "iat", "Show the inter-arrival times of the last 1024 datagrams (this stops playing)");
    auto options = std::make_shared<IatOptions>();
    sub->add_option("server", options->server, "stream server to set first, as with tessaryctl server")
        ->expected(0, 5);
    sub->add_flag("--plot", options->plot, "draw a histogram");
    sub->add_option("--bins", options->bins, "bars of the histogram")
        ->check(between(1, 1000))
        ->capture_default_str();
    if (!context.hosted()) {
        sub->add_option("--png", options->png, "write histogram and course as a picture")->type_name("FILE");
        sub->add_option("--svg", options->svg, "the same as a vector graphic")->type_name("FILE");
    }
    sub->add_option("--wait", options->wait, "seconds to wait for datagrams")
        ->check(between(0.0, 3600.0))
        ->capture_default_str();
    sub->callback([&context, options] { iat(context, *options); });
}

} // namespace tessary::ctl
