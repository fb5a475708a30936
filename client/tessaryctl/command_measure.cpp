// How the stream arrives: measure (once or as a live screen) and iat.
#include "client/tessaryctl/clocktime.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/groups.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/jsonvalue.h"
#include "client/tessaryctl/plot.h"
#include "client/tessaryctl/portload.h"
#include "client/tessaryctl/reading.h"
#include "client/tessaryctl/serverspec.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <deque>
#include <iostream>
#include <thread>

namespace tessary::ctl {

using namespace client;

namespace {

constexpr const char* absentRemedy =
    "check that the stream is sent, and that tessaryctl server has its address, port and protocol";

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

/// The instrument does not tell it.
std::string serverText(const InstrumentMemory& memory)
{
    const auto& server = memory.server();
    return server.has_value() ? server->url
                              : "not known: it was not set from here; tessaryctl server sets it";
}

void printMeasurement(std::ostream& out, const InstrumentMemory& memory, const Measurement& m)
{
    out << tableOf({{"stream", serverText(memory)},
        {"bit rate", bitRateText(m.bitRate) + "   (" + std::to_string(m.bitRate) + " bit/s)"},
        {"delay factor", std::to_string(m.delayFactorMs) + " ms"},
        {"continuity errors", std::to_string(m.continuityErrors) + " in the last second"},
        {"datagram", packetText(m)}});
}

void setServerIfGiven(Context& context, Controller& controller, const std::vector<std::string>& words)
{
    if (!words.empty())
        changeServer(context, controller, parseServer(words));
}

void remarkOnOtherTraffic(const Context& context, double received, const Measurement& measurement)
{
    if (hasOtherTraffic(received, measurement.bitRate))
        context.note("remark: eth0 receives " + bitRateText(received)
            + " in all, so something comes in beside this stream. Groups joined for earlier stream servers "
              "stay "
              "joined until the link goes down; tessaryctl server --leave GROUP leaves one");
}

void measureOnce(Context& context, const MeasureOptions& options)
{
    Controller& controller = context.controller();
    setServerIfGiven(context, controller, options.server);
    const PortLoad load(controller);
    const Measurement measurement = measureWholePeriod(controller, options.wait);
    if (!measurement.present)
        throw Failure(
            ExitCode::Nothing, "no stream arrives (waited " + fixed(options.wait, 0) + " s)", absentRemedy);
    const std::optional<double> received = load.bitRate();
    if (context.json()) {
        Json value = jsonOfServer(context.memory());
        value.update(jsonOf(measurement));
        value["received_bit_rate"] = received.has_value() ? Json(std::llround(*received)) : Json();
        context.print(value);
    } else {
        printMeasurement(context.out(), context.memory(), measurement);
    }
    if (received.has_value())
        remarkOnOtherTraffic(context, *received, measurement);
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

/// What the live screen draws of the readings before.
struct Course
{
    std::deque<double> bitRates;
    std::deque<double> delayFactors;

    void add(const Measurement& m, std::size_t most)
    {
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
    return localTime(std::chrono::system_clock::now(), "%H:%M:%S");
}

/// What --watch knows at the moment.
struct Watch
{
    PeriodWatch periods;
    Measurement figures; ///< as read last
    Course course;

    bool settling() const { return periods.state() == PeriodWatch::State::Settling; }
};

std::string stateText(const Watch& watch)
{
    switch (watch.periods.state()) {
    case PeriodWatch::State::Absent:
        return "\033[31mno stream\033[0m";
    case PeriodWatch::State::Settling:
        return "\033[33mstream comes\033[0m"; // its first figures would be partly those of before
    case PeriodWatch::State::Valid:
        break;
    }
    return "\033[32mstream present\033[0m";
}

/// In front of all else; what does not fit is left out.
std::string headline(const Watch& watch, std::size_t width)
{
    constexpr std::size_t wholeWidth = 60;
    const std::string state = clockText() + "   " + stateText(watch);
    return width < wholeWidth ? state : "\033[1mtessaryctl measure\033[0m   " + state + "   Ctrl-C ends";
}

void drawScreen(std::ostream& out, const Watch& watch, const std::vector<std::int64_t>& times)
{
    constexpr std::size_t otherLines = 8;
    constexpr std::size_t mostBins = 12;
    const std::size_t width = terminalWidth();
    const std::size_t bins = std::min(std::max(terminalHeight(), otherLines + 1) - otherLines, mostBins);
    const Measurement m = watch.settling() ? Measurement{} : watch.figures;
    std::string text = tableOf({{"bit rate", bitRateText(m.bitRate), course(watch.course.bitRates)},
        {"delay factor", std::to_string(m.delayFactorMs) + " ms", course(watch.course.delayFactors)},
        {"continuity errors", std::to_string(m.continuityErrors), textOf(watch.periods.total())},
        {"datagram", packetText(watch.figures), ""}});
    text += "\ninter-arrival times";
    if (times.empty())
        text += ": none yet\n";
    else
        text += "  (" + statisticsLine(statisticsOf(times)) + ")\n" + textHistogram(times, bins, width);
    out << "\033[H\033[2J" << headline(watch, width) << "\n\n" << cutToWidth(text, width) << std::flush;
}

/// One line a reading, for a log or a pipe.
void printWatchLine(std::ostream& out, const Watch& watch)
{
    const Measurement& m = watch.figures;
    out << clockText() << "  ";
    if (m.present)
        out << bitRateText(m.bitRate) << "  delay factor " << m.delayFactorMs << " ms  errors "
            << m.continuityErrors << " (" << textOf(watch.periods.total()) << ")  " << packetText(m)
            << std::endl;
    else
        out << "no stream" << std::endl;
}

Json jsonOfWatch(const InstrumentMemory& memory, const Watch& watch, const std::vector<std::int64_t>& times)
{
    Json value = jsonOfServer(memory);
    value.update(jsonOf(watch.figures));
    value["since_start"] = jsonOf(watch.periods.total());
    value["inter_arrival"] = jsonOf(statisticsOf(times));
    return value;
}

/// Reads on, as often as the periods need it, until `moment` or Ctrl-C; at least once.
void followUntil(Controller& controller, Watch& watch, std::chrono::steady_clock::time_point moment,
    const InterruptGuard& guard)
{
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        const auto reading = readMeasurement(controller);
        watch.periods.add(reading);
        watch.figures = reading.figures;
        if (guard.interrupted() || now >= moment)
            return;
        guard.sleepUntil(std::min<std::chrono::steady_clock::time_point>(moment, now + readingInterval));
    }
}

/// Shows what has been read; false when there is nothing to show yet.
bool show(Context& context, Controller& controller, Watch& watch)
{
    const bool screen = outputIsTerminal() && !context.json();
    if (watch.settling() && !screen)
        return false;
    if (!watch.settling())
        watch.course.add(watch.figures, 40);
    if (screen)
        drawScreen(context.out(), watch, readInterArrivalTimes(controller));
    else if (context.json())
        context.printLine(jsonOfWatch(context.memory(), watch, readInterArrivalTimes(controller)));
    else
        printWatchLine(context.out(), watch);
    return !watch.settling();
}

void watchMeasurement(Context& context, const MeasureOptions& options)
{
    Controller& controller = context.controller();
    setServerIfGiven(context, controller, options.server);
    const InterruptGuard guard;
    Watch watch;
    int shown = 0;
    auto next = std::chrono::steady_clock::now();
    while (options.count == 0 || shown < options.count) {
        next += Milliseconds(std::lround(options.interval * 1000));
        followUntil(controller, watch, next, guard);
        if (guard.interrupted())
            break;
        if (show(context, controller, watch))
            ++shown;
        next = std::max(next, std::chrono::steady_clock::now() - Milliseconds(1000));
    }
    if (outputIsTerminal() && !context.json())
        context.out() << std::endl; // the screen's last line has no end
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
    setServerIfGiven(context, controller, options.server);
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
        Json value = jsonOfServer(context.memory());
        value.update(jsonOf(statistics));
        value["times_us"] = times;
        Json histogram = Json::array();
        for (const auto& bin : histogramOf(times, options.bins))
            histogram.push_back({{"from_us", bin.from}, {"to_us", bin.to}, {"count", bin.count}});
        value["histogram"] = histogram;
        return context.print(value);
    }
    context.out() << serverText(context.memory()) << '\n' << statisticsLine(statistics) << '\n';
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
    auto* watch = sub->add_flag("-w,--watch", options->watch,
        "a live screen; lines instead when the output is no terminal or --json is given");
    sub->add_option("--interval", options->interval, "seconds between two readings of --watch")
        ->needs(watch)
        ->check(between(0.1, 3600.0))
        ->capture_default_str();
    sub->add_option("-n,--count", options->count, "end --watch after so many readings")
        ->needs(watch)
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
