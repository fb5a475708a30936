#pragma once

#include "client/tessaryctl/logentry.h"

#include <optional>
#include <string>

namespace tessary::ctl {

/// The format that a file's suffix stands for: .csv, .jsonl, .ndjson, .json.
std::optional<LogFormat> formatOfName(const std::string& path);

/// Where a log's rows go: to the end of a file, each on the disk when write() returns, or to standard output.
/// One program at a time has the file. Everything throws Failure LocalFile.
class LogFile
{
public:
    /// `path` empty: standard output. Goes on behind the rows of a file that is there; one that is no log, or
    /// of the other format, is refused.
    LogFile(const std::string& path, LogFormat format);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void write(const LogEntry& entry);

    /// The file's last whole row, when it had some.
    const std::optional<LogEntry>& former() const { return m_former; }

private:
    void readFormer();
    void writeText(const std::string& text) const;
    [[noreturn]] void fail(const std::string& what) const;

    std::string m_path;
    LogFormat m_format;
    int m_fd = -1;
    std::optional<LogEntry> m_former;
};

} // namespace tessary::ctl
