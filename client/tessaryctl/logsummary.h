#pragma once

#include "client/tessaryctl/context.h"
#include "client/tessaryctl/logentry.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tessary::ctl {

/// A measurement log as it was read. Times go up: rows that lie before the one in front of them, because the
/// clock was set back, are left out and counted as damaged.
struct MeasurementRecord
{
    std::vector<LogEntry> entries;
    long damagedLines = 0;
};

/// Throws Failure LocalFile when the file can not be read or is no log.
MeasurementRecord readLog(const std::string& path);

/// A stretch of time in which no figures could be had.
struct Span
{
    enum class Kind {
        Absent, ///< no stream arrived
        NoLink, ///< the instrument's Ethernet had no link
        NoAnswer, ///< the instrument did not answer
        NotLogged, ///< the log did not run
    };

    Kind kind;
    double from; ///< seconds since 1970
    double to;

    double seconds() const { return to - from; }
};

/// "no stream", "not logged".
const char* nameOf(Span::Kind kind);

/// Smallest, largest and mean of a column.
struct Range
{
    double least = 0;
    double most = 0;
    double mean = 0;
    long count = 0; ///< 0: there are none
};

/// A minute of the clock.
struct Minute
{
    double from = 0; ///< seconds since 1970
    double lost = 0; ///< seconds without stream
    std::int64_t errors = 0;
    std::int64_t delayFactorMs = 0; ///< the largest
    std::int64_t longestUs = 0; ///< the longest inter-arrival time
};

/// Rows that cross the same limit, none more than a minute after the one before.
struct Crossing
{
    std::string limit;
    double from = 0;
    double to = 0;
    long rows = 0;
    double worst =
        0; ///< value of the row that crosses it furthest, in the column's unit; of a loss, its seconds
};

/// What a log says in all.
struct LogSummary
{
    double from = 0; ///< first and last row, seconds since 1970
    double to = 0;
    std::map<Span::Kind, double> seconds; ///< without figures, by cause
    std::vector<Span> spans;
    double present = 0; ///< seconds with the stream there
    std::optional<double> availability; ///< of the time in which the instrument could tell, 0 to 1
    long periods = 0;
    long periodsWithErrors = 0;
    std::int64_t errors = 0;
    long missed = 0; ///< rows that say so
    long changes = 0;
    Range frameRate; ///< bit/s
    Range transportRate; ///< bit/s
    Range delayFactor; ///< ms
    Range median; ///< µs
    Range percentile99; ///< µs
    Range longest; ///< µs
    std::vector<Minute> worstMinutes; ///< those with a fault, the worst first; at most ten
    std::vector<Crossing> crossings;
    std::map<std::string, std::string> limits; ///< name to value, "" for one without
    std::vector<std::string> servers;
    std::vector<LogEntry> happenings; ///< rows that are no periods
    bool ended = false; ///< the last row is the log's own end
};

LogSummary summaryOf(const MeasurementRecord& log);

Json jsonOf(const LogSummary& summary);
std::string textOf(const LogSummary& summary);

} // namespace tessary::ctl
