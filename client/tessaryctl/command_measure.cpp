// How the stream arrives: measure (once or as a live screen) and iat.
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/plot.h"
#include "client/tessaryctl/reading.h"
#include "client/tessaryctl/serverspec.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <ctime>
#include <deque>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>

namespace tessary::ctl {

using namespace client;

namespace {

constexpr const char* absentRemedy =
    "check that the stream is sent, and that tessaryctl server has its address, port and protocol";

volatile std::sig_atomic_t interrupted = 0;

/// While it lives, Ctrl-C ends the screen instead of the program, so that the terminal is left in order.
class InterruptGuard
{
public:
    InterruptGuard()
    {
        interrupted = 0;
        struct sigaction action
        {
        };
        action.sa_handler = [](int) { interrupted = 1; };
        ::sigaction(SIGINT, &action, &m_before);
    }
    ~InterruptGuard() { ::sigaction(SIGINT, &m_before, nullptr); }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    struct sigaction m_before
    {
    };
};

struct MeasureOptions
{
    std::vector<std::string> server;
    bool watch = false;
    double interval = 1;
    int count = 0; ///< of readings; 0 without end
    double wait = 5;
};

std::string packetText(const Measurement& m)
{
    return m.packetSize == 0
        ? "no whole TS packets"
        : std::to_string(m.packetsPerDatagram) + " × " + std::to_string(m.packetSize) + " bytes";
}

void printMeasurement(std::ostream& out, const Measurement& m)
{
    out << tableOf({{"bit rate", bitRateText(m.bitRate) + "   (" + std::to_string(m.bitRate) + " bit/s)"},
        {"delay factor", std::to_string(m.delayFactorMs) + " ms"},
        {"continuity errors", std::to_string(m.continuityErrors) + " in the last second"},
        {"datagram", packetText(m)}});
}

void setServerIfGiven(Controller& controller, const std::vector<std::string>& words)
{
    if (!words.empty())
        controller.setServer(parseServer(words));
}

/// Starts the capture if it does not run yet, and returns the first reading. What another stream left in the
/// figures counts as present for up to two seconds more; it is let pass when the server is a new one.
Measurement startCapture(Controller& controller, const std::vector<std::string>& server)
{
    setServerIfGiven(controller, server);
    Measurement first = readMeasurement(controller);
    if (first.present && !server.empty()) {
        std::this_thread::sleep_for(Milliseconds(2100));
        first = {};
    }
    return first;
}

void measureOnce(Context& context, const MeasureOptions& options)
{
    Controller& controller = context.controller();
    const Measurement first = startCapture(controller, options.server);
    const Measurement measurement = settledMeasurement(controller, first, options.wait);
    if (context.json())
        context.print(jsonOf(measurement));
    else if (measurement.present)
        printMeasurement(context.out(), measurement);
    if (!measurement.present)
        throw Failure(
            ExitCode::Nothing, "no stream arrives (waited " + fixed(options.wait, 0) + " s)", absentRemedy);
}

/// Small bars, one for each of the last values, scaled to the largest.
std::string course(const std::deque<double>& values)
{
    static constexpr const char* steps[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const double most = values.empty() ? 1 : std::max(*std::max_element(values.begin(), values.end()), 1.0);
    std::string text;
    for (const double value : values)
        text += steps[std::clamp(static_cast<int>(value / most * 7.99), 0, 7)];
    return text;
}

/// What the live screen remembers.
struct Watch
{
    std::deque<double> bitRates;
    std::deque<double> delayFactors;
    long errors = 0;
    int readings = 0;

    void add(const Measurement& m, std::size_t most)
    {
        ++readings;
        errors += m.continuityErrors;
        bitRates.push_back(m.bitRate);
        delayFactors.push_back(m.delayFactorMs);
        for (auto* values : {&bitRates, &delayFactors}) {
            while (values->size() > most)
                values->pop_front();
        }
    }
};

std::string clockText()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::localtime_r(&now, &parts);
    char text[16] = {};
    std::strftime(text, sizeof text, "%H:%M:%S", &parts);
    return text;
}

void drawScreen(
    std::ostream& out, const Watch& watch, const Measurement& m, const std::vector<std::int64_t>& times)
{
    const std::size_t width = terminalWidth();
    std::string text = "\033[H\033[2J\033[1mtessaryctl measure\033[0m   " + clockText() + "   "
        + (m.present ? "\033[32mstream present\033[0m" : "\033[31mno stream\033[0m") + "   Ctrl-C ends\n\n";
    text += tableOf({{"bit rate", bitRateText(m.bitRate), course(watch.bitRates)},
        {"delay factor", std::to_string(m.delayFactorMs) + " ms", course(watch.delayFactors)},
        {"continuity errors", std::to_string(m.continuityErrors),
            std::to_string(watch.errors) + " since the start"},
        {"datagram", packetText(m), ""}});
    text += "\ninter-arrival times";
    if (times.empty())
        text += ": none yet\n";
    else
        text += "  (" + statisticsLine(statisticsOf(times)) + ")\n" + textHistogram(times, 12, width);
    out << text << std::flush;
}

/// One line a reading, for a log or a pipe.
void printWatchLine(std::ostream& out, const Measurement& m)
{
    out << clockText() << "  ";
    if (m.present)
        out << bitRateText(m.bitRate) << "  delay factor " << m.delayFactorMs << " ms  errors "
            << m.continuityErrors << "  " << packetText(m) << std::endl;
    else
        out << "no stream" << std::endl;
}

void sleepUntil(std::chrono::steady_clock::time_point moment)
{
    while (interrupted == 0 && std::chrono::steady_clock::now() < moment)
        std::this_thread::sleep_for(Milliseconds(50));
}

void watchMeasurement(Context& context, const MeasureOptions& options)
{
    Controller& controller = context.controller();
    startCapture(controller, options.server);
    const InterruptGuard guard;
    const bool screen = outputIsTerminal() && !context.json();
    Watch watch;
    auto next = std::chrono::steady_clock::now();
    while (interrupted == 0) {
        next += Milliseconds(std::lround(options.interval * 1000));
        sleepUntil(next);
        if (interrupted != 0)
            break;
        const Measurement m = readMeasurement(controller);
        watch.add(m, 40);
        if (screen) {
            drawScreen(context.out(), watch, m, readInterArrivalTimes(controller));
        } else if (context.json()) {
            Json value{{"time", std::time(nullptr)}};
            value.update(jsonOf(m));
            value["inter_arrival"] = jsonOf(statisticsOf(readInterArrivalTimes(controller)));
            context.printLine(value);
        } else {
            printWatchLine(context.out(), m);
        }
        if (options.count > 0 && watch.readings >= options.count)
            break;
        next = std::max(next, std::chrono::steady_clock::now() - Milliseconds(1000));
    }
}

struct IatOptions
{
    std::vector<std::string> server;
    bool plot = false;
    std::size_t bins = 20;
    std::string png;
    std::string svg;
    double wait = 5;
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

void iat(Context& context, const IatOptions& options)
{
    Controller& controller = context.controller();
    setServerIfGiven(controller, options.server);
    const auto times = gatherTimes(controller, options.wait);
    if (times.empty())
        throw Failure(
            ExitCode::Nothing, "no datagram arrived within " + fixed(options.wait, 0) + " s", absentRemedy);
    const Plot plot{"Inter-arrival times", times};
    if (!options.png.empty())
        writePng(plot, options.png);
    if (!options.svg.empty())
        writeSvg(plot, options.svg);
    const InterArrivalStatistics statistics = statisticsOf(times);
    if (context.json()) {
        Json value = jsonOf(statistics);
        value["times_us"] = times;
        Json histogram = Json::array();
        for (const auto& bin : histogramOf(times, options.bins))
            histogram.push_back({{"from_us", bin.from}, {"to_us", bin.to}, {"count", bin.count}});
        value["histogram"] = histogram;
        return context.print(value);
    }
    context.out() << statisticsLine(statistics) << '\n';
    if (options.plot)
        context.out() << '\n' << textHistogram(times, options.bins, terminalWidth());
    for (const auto& file : {options.png, options.svg}) {
        if (!file.empty())
            context.out() << "plot: " << file << '\n';
    }
    context.out() << std::flush;
}

} // namespace

void addMeasure(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "measure", "Measure how the stream arrives (this stops playing)");
    auto options = std::make_shared<MeasureOptions>();
    sub->add_option("server", options->server, "stream server to set first, as with tessaryctl server")
        ->expected(0, 5);
    sub->add_flag("-w,--watch", options->watch,
        "a live screen; lines instead when the output is no terminal or --json is given");
    sub->add_option("--interval", options->interval, "seconds between two readings of --watch")
        ->check(between(0.1, 3600.0))
        ->capture_default_str();
    sub->add_option("-n,--count", options->count, "end --watch after so many readings")
        ->check(between(1, 1000000000));
    sub->add_option("--wait", options->wait, "seconds to wait for the stream")
        ->check(between(0.0, 3600.0))
        ->capture_default_str();
    sub->callback([&context, options] {
        if (options->watch)
            watchMeasurement(context, *options);
        else
            measureOnce(context, *options);
    });
}

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
    sub->add_option("--png", options->png, "write histogram and course as a picture")->type_name("FILE");
    sub->add_option("--svg", options->svg, "the same as a vector graphic")->type_name("FILE");
    sub->add_option("--wait", options->wait, "seconds to wait for datagrams")
        ->check(between(0.0, 3600.0))
        ->capture_default_str();
    sub->callback([&context, options] { iat(context, *options); });
}

} // namespace tessary::ctl
