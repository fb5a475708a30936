// How the stream arrives, over hours: log.
#include "client/answererror.h"
#include "client/lineerror.h"
#include "client/serverspec.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/logfile.h"
#include "client/tessaryctl/measurementlog.h"
#include "client/tessaryctl/progress.h"
#include "client/tessaryctl/quantities.h"
#include "client/tessaryctl/reading.h"
#include "client/tessaryctl/terminal.h"

#include <cmath>
#include <iostream>
#include <ostream>
#include <utility>

namespace tessary::ctl {

using namespace client;

namespace {

using Clock = std::chrono::steady_clock;
using Loss = MeasurementLog::Loss;

/// An answer takes less than a second on the slowest line: after that the instrument does not answer.
constexpr double answerSeconds = 3;

/// Between two tries to reach an instrument that does not answer.
constexpr Milliseconds retryInterval{1000};

struct LogOptions
{
    std::vector<std::string> server;
    std::string output;
    std::string format;
    double duration = 0; ///< seconds; 0 without end
    LogSettings settings;
};

/// The line to the instrument, which may be lost and come back.
class Connection
{
public:
    Connection(Context& context, std::optional<StreamServer> server)
        : m_context(context)
        , m_server(std::move(server))
    {
        open();
    }

    Controller* controller() { return m_controller; }

    /// Tries to make the instrument answer, which has its stream server set again then. Throws LineError.
    void open()
    {
        if (m_controller == nullptr) {
            m_controller = &m_context.controller(answerSeconds);
            m_starts = m_context.memory().startsSeen();
        }
        m_controller->settle();
        if (m_server.has_value())
            m_controller->setServer(*m_server);
    }

    /// Tells once that the instrument has started anew; it may have done so between two questions.
    bool restarted()
    {
        const int before = std::exchange(m_starts, m_context.memory().startsSeen());
        return m_starts != before;
    }

    /// After a failure; a line that has not just been silent has to be opened anew.
    void fail(bool silent)
    {
        if (silent)
            return;
        m_controller = nullptr;
        m_context.closeLine();
    }

private:
    Context& m_context;
    std::optional<StreamServer> m_server;
    Controller* m_controller = nullptr;
    int m_starts = 0;
};

/// What the person at the terminal sees of a log that goes into a file.
std::string statusText(const LogEntry& entry, const MeasurementLog::Totals& totals)
{
    std::string text = localTime(entry.time, "%H:%M:%S") + "  ";
    if (entry.frameRate.has_value())
        text += bitRateText(static_cast<double>(*entry.frameRate)) + "  delay factor "
            + std::to_string(entry.delayFactorMs.value_or(0)) + " ms";
    else
        text += std::string(nameOf(entry.event)) + (entry.note.empty() ? "" : " (" + entry.note + ")");
    text += "  " + std::to_string(totals.periods) + " periods, " + std::to_string(totals.errors) + " errors, "
        + std::to_string(totals.gaps) + " gaps";
    if (totals.rowsWithCrossing > 0)
        text += ", limits crossed in " + std::to_string(totals.rowsWithCrossing) + " rows";
    return text;
}

LogFormat formatOf(const Context& context, const LogOptions& options)
{
    if (!options.format.empty())
        return options.format == "csv" ? LogFormat::Csv : LogFormat::JsonLines;
    const auto named = formatOfName(options.output);
    return named.value_or(context.json() ? LogFormat::JsonLines : LogFormat::Csv);
}

/// Asks until `end` or an interruption, and lets the log have what comes.
class Logging
{
public:
    Logging(Connection& connection, MeasurementLog& log, const InterruptGuard& guard)
        : m_connection(connection)
        , m_log(log)
        , m_guard(guard)
    {
    }

    void runUntil(std::optional<Clock::time_point> end)
    {
        while (!m_guard.interrupted() && (!end.has_value() || Clock::now() < *end)) {
            auto next = Clock::now() + readingInterval;
            if (!step())
                next = Clock::now() + retryInterval;
            m_guard.sleepUntil(end.has_value() ? std::min(next, *end) : next);
        }
    }

private:
    /// False when the instrument does not answer.
    bool step()
    {
        try {
            if (m_lost)
                m_connection.open();
            m_lost = false;
            read(*m_connection.controller());
            return true;
        } catch (const LineError& error) {
            const bool silent = error.kind() == LineError::Kind::TimedOut;
            lost(silent ? "no answer in time" : "the port is gone", silent);
        } catch (const AnswerError&) {
            lost("damaged answer", true);
        }
        return false;
    }

    void lost(const char* why, bool silent)
    {
        m_log.lost(Loss::Answer, MeasurementLog::Moment::now(), why);
        m_connection.fail(silent);
        m_lost = true;
    }

    void restarted()
    {
        m_log.lost(Loss::Answer, MeasurementLog::Moment::now(), "the instrument has restarted");
        m_connection.open();
    }

    void read(Controller& controller)
    {
        const auto asked = Clock::now();
        const auto figures = controller.measurement();
        const auto now = MeasurementLog::Moment::now();
        if (m_connection.restarted()) // figures of another server, perhaps, which it has at the start
            return restarted();
        if (!figures.has_value())
            return m_log.lost(Loss::Link, now, "");
        if (!m_log.add({asked, now.steady, *figures}, now.wall))
            return;
        auto times = controller.interArrivalTimes();
        if (times.has_value())
            m_log.addArrivals(intervalsIn(*std::move(times)), Clock::now());
    }

    Connection& m_connection;
    MeasurementLog& m_log;
    const InterruptGuard& m_guard;
    bool m_lost = false;
};

/// For the person, and as exit status, how it went.
void conclude(const Context& context, const LogSettings& settings, const MeasurementLog::Totals& totals)
{
    if (totals.rowsWithCrossing > 0) {
        std::string text;
        for (const auto& [limit, rows] : totals.crossed)
            text += (text.empty() ? "" : ", ") + limit + " in " + std::to_string(rows);
        throw Failure(ExitCode::LimitCrossed, "limits crossed (rows): " + text,
            "the limits: " + textOf(settings.limits));
    }
    if (totals.periods == 0)
        throw Failure(ExitCode::Nothing, "no period of a stream was measured",
            "check that the stream is sent, and that the server is the right one; a first row takes some "
            "five seconds");
    context.note(std::to_string(totals.periods) + " periods, " + std::to_string(totals.errors) + " errors, "
        + std::to_string(totals.gaps) + " gaps");
}

void log(Context& context, LogOptions options)
{
    if (!options.server.empty())
        options.settings.server = parseServer(options.server);
    Connection connection(context, options.settings.server);
    LogFile file(options.output, formatOf(context, options));
    const InterruptGuard guard;
    auto status = std::make_unique<StatusLine>();
    const MeasurementLog* totalsOf = nullptr;
    MeasurementLog log(options.settings, [&](const LogEntry& entry) {
        file.write(entry);
        if (!options.output.empty() && totalsOf != nullptr)
            status->show(statusText(entry, totalsOf->totals()));
    });
    totalsOf = &log;
    log.start(MeasurementLog::Moment::now(), file.former());
    std::optional<Clock::time_point> end;
    if (options.duration > 0)
        end = Clock::now()
            + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.duration));
    Logging(connection, log, guard).runUntil(end);
    log.end(MeasurementLog::Moment::now(), guard.interrupted() ? "interrupted" : "duration over");
    status.reset();
    conclude(context, options.settings, log.totals());
}

void addLimits(CLI::App& sub, LogLimits& limits)
{
    constexpr std::int64_t most = 1'000'000'000;
    sub.add_option("--max-delay-factor", limits.delayFactorMs, "limit: milliseconds")
        ->check(between(std::int64_t{0}, most))
        ->type_name("MS");
    sub.add_option("--max-errors", limits.errors, "limit: continuity errors in a period")
        ->check(between(std::int64_t{0}, most))
        ->type_name("N");
    sub.add_option("--min-rate", limits.frameRate, "limit: bit/s of whole frames, such as 9.5M")
        ->transform(rateWithUnit())
        ->type_name("RATE");
    sub.add_flag("--on-loss", limits.loss, "limit: neither stream nor link may be lost");
}

} // namespace

void addLog(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "log",
        "Log how the stream arrives, a row for each second, until Ctrl-C (this stops playing)");
    auto options = std::make_shared<LogOptions>();
    sub->add_option("server", options->server,
           "stream server to set first, and again after a restart of the instrument; needed for the "
           "transport stream's rate")
        ->expected(0, 5);
    sub->add_option("-o,--output", options->output, "file to write to, behind what it has; .csv or .jsonl")
        ->type_name("FILE");
    sub->add_option("--format", options->format, "csv or json (lines); usually by the file's suffix")
        ->check(CLI::IsMember({"csv", "json"}).description(""))
        ->type_name("FORMAT");
    sub->add_option("--duration", options->duration, "end after so long, such as 90, 30m or 8h")
        ->transform(durationWithUnit())
        ->type_name("TIME");
    sub->add_option("--rate-change", options->settings.rateChangePercent,
           "another bit rate for three seconds is another stream; 0: never")
        ->check(between(0.0, 1000.0))
        ->capture_default_str()
        ->type_name("PERCENT");
    addLimits(*sub, options->settings.limits);
    sub->footer("Exit status 30 when a limit was crossed. tessaryctl report makes a page of the file.");
    sub->callback([&context, options] { log(context, *options); });
}

} // namespace tessary::ctl
