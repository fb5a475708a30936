#pragma once

#include "client/arrivalwatch.h"
#include "client/controller.h"
#include "client/periodwatch.h"
#include "client/tessaryctl/logentry.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tessary::ctl {

/// What a row must not cross.
struct LogLimits
{
    std::optional<std::int64_t> delayFactorMs; ///< at most
    std::optional<std::int64_t> errors; ///< continuity errors in a period, at most
    std::optional<std::int64_t> frameRate; ///< bit/s of whole frames, at least
    bool loss = false; ///< neither the stream nor the Ethernet link may be lost
};

/// "max-delay-factor=50 max-errors=0", as the options that set them; for the log's first row.
std::string textOf(const LogLimits& limits);

struct LogSettings
{
    std::optional<client::StreamServer> server; ///< nothing: not known which one is set
    LogLimits limits;
    double rateChangePercent = 20; ///< of the bit rate: more is another stream; 0: never
};

/// The rows of a measurement log from what comes of the instrument: each period once, gaps, changes. It does
/// not ask the instrument and writes no file.
class MeasurementLog
{
public:
    using Sink = std::function<void(const LogEntry&)>;

    /// Of both clocks: lengths are taken from the one that nobody sets.
    struct Moment
    {
        client::PeriodWatch::Clock::time_point steady;
        WallTime wall;

        static Moment now();
    };

    /// Why there is nothing to measure.
    enum class Loss { Stream, Link, Answer };

    struct Totals
    {
        long periods = 0;
        long errors = 0;
        long missed = 0; ///< periods at most
        long unsure = 0; ///< errors more or fewer
        long gaps = 0;
        std::map<std::string, long> crossed; ///< rows by limit

        long rowsWithCrossing = 0;
    };

    MeasurementLog(LogSettings settings, Sink sink);

    /// `former`: the last row of the file that the log goes on in.
    void start(Moment now, const std::optional<LogEntry>& former);

    /// One reading. True when a period has ended: its inter-arrival times should be asked for and given to
    /// addArrivals(), which writes its row. Without them it is written with what comes next.
    bool add(const client::PeriodWatch::Reading& reading, WallTime wall);
    void addArrivals(std::vector<std::int64_t> times, client::PeriodWatch::Clock::time_point answered);

    /// The instrument does not answer or has no link. Told again while it stays so; the last note stands in
    /// the row of the gap's end as well.
    void lost(Loss loss, Moment now, const std::string& note);

    void end(Moment now, const std::string& reason);

    const Totals& totals() const { return m_totals; }

private:
    struct OpenGap
    {
        Loss loss;
        Moment since;
        Moment told; ///< when a row said so last
        std::string note; ///< of why, as told last
    };

    LogEntry entryAt(WallTime wall, LogEntry::Event event) const;
    LogEntry periodEntry(const client::Measurement& figures, WallTime wall) const;
    void addPeriods(
        const client::PeriodWatch::Reading& reading, const client::PeriodWatch::Total& total, WallTime wall);
    void noStream(Moment now);
    void openGap(Loss loss, Moment since, Moment now, const std::string& note);
    void closeGap(Moment now);
    void flush();
    void watchForChange(const LogEntry& period);
    void write(LogEntry entry);
    std::string crossedBy(const LogEntry& entry) const;

    LogSettings m_settings;
    Sink m_sink;
    client::PeriodWatch m_watch;
    client::PeriodWatch::Total m_counted; ///< of m_watch, as far as there are rows
    client::ArrivalWatch m_arrivals;
    std::optional<client::Measurement> m_shown; ///< by the last reading
    std::optional<Moment> m_lastGood; ///< last reading of a present stream
    std::optional<Moment> m_firstLook; ///< first reading since the capture may have begun anew
    bool m_seen = false; ///< a stream was there since then
    std::optional<WallTime> m_lastRow; ///< of a period
    std::vector<LogEntry> m_pending; ///< rows that wait for their inter-arrival times
    std::optional<OpenGap> m_gap;
    Totals m_totals;

    std::optional<LogEntry> m_stream; ///< the row that others are compared with to see another stream
    std::deque<std::int64_t> m_rates; ///< of the last rows, while they differ from it
    bool m_otherDatagrams = false; ///< the last row had others
};

} // namespace tessary::ctl
