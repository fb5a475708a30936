#pragma once

#include "client/tessaryctl/clocktime.h"
#include "client/tessaryctl/context.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessary::ctl {

/// One row of a measurement log. docs/measurement.md tells what the columns mean.
struct LogEntry
{
    enum class Event {
        Start, ///< of the log; the note has its limits
        Resumed, ///< the log goes on in a file that has rows already
        Period, ///< a period of the measurement
        Absent, ///< no stream arrives
        NoLink, ///< the instrument's Ethernet has no link
        NoAnswer, ///< the instrument does not answer: unplugged, off, restarting
        Gap, ///< the end of one of the three; `seconds` is its length
        Changed, ///< another stream, as far as its rate and its datagrams tell
        Missed, ///< periods may have gone by unseen
        End,
    };

    WallTime time;
    Event event = Event::Period;
    std::string server; ///< URL; empty when the log was not told which one is set
    std::optional<std::int64_t> present; ///< 1 or 0
    std::optional<std::int64_t> frameRate; ///< bit/s of whole frames
    std::optional<std::int64_t> transportRate; ///< bit/s of the transport stream
    std::optional<std::int64_t> delayFactorMs;
    std::optional<std::int64_t> errors; ///< continuity errors of the period
    std::optional<std::int64_t> packetSize; ///< bytes
    std::optional<std::int64_t> packetsPerDatagram;
    std::optional<std::int64_t> arrivals; ///< frames whose inter-arrival times the next four describe
    std::optional<std::int64_t> medianUs;
    std::optional<std::int64_t> percentile95Us;
    std::optional<std::int64_t> percentile99Us;
    std::optional<std::int64_t> longestUs;
    std::optional<double> seconds;
    std::string crossed; ///< names of the limits that this row crosses, parted by blanks
    std::string note;
};

/// A whole number of LogEntry and what it is called in a file.
struct LogNumber
{
    const char* name;
    std::optional<std::int64_t> LogEntry::*value;
};

/// In the order of the columns.
const std::vector<LogNumber>& logNumbers();

/// "period", "no-answer".
const char* nameOf(LogEntry::Event event);

enum class LogFormat { Csv, JsonLines };

/// The line in front of all others; empty for JSON lines. Without line feed, as the next.
std::string headerOf(LogFormat format);
std::string lineOf(const LogEntry& entry, LogFormat format);

/// Reads lines as headerOf() and lineOf() write them, also with columns in another order or beside them.
class LogReader
{
public:
    /// The first line tells the format. Throws Failure LocalFile when it is not that of a log; `name` is the
    /// file's, for the text.
    LogReader(const std::string& firstLine, const std::string& name);

    LogFormat format() const { return m_format; }

    /// Nothing for a header and for a line that is damaged, such as the last one before a power cut.
    std::optional<LogEntry> read(const std::string& line) const;

private:
    std::optional<LogEntry> readCsv(const std::string& line) const;

    LogFormat m_format = LogFormat::Csv;
    std::vector<std::string> m_columns;
};

} // namespace tessary::ctl
