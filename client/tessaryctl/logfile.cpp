#include "client/tessaryctl/logfile.h"

#include "client/tessaryctl/failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <string_view>
#include <sys/file.h>
#include <unistd.h>

namespace tessary::ctl {

namespace {

bool endsWith(const std::string& text, std::string_view ending)
{
    return text.size() >= ending.size()
        && text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

} // namespace

std::optional<LogFormat> formatOfName(const std::string& path)
{
    if (endsWith(path, ".csv"))
        return LogFormat::Csv;
    for (const char* suffix : {".jsonl", ".ndjson", ".json"}) {
        if (endsWith(path, suffix))
            return LogFormat::JsonLines;
    }
    return std::nullopt;
}

LogFile::LogFile(const std::string& path, LogFormat format)
    : m_path(path)
    , m_format(format)
    , m_fd(path.empty() ? STDOUT_FILENO : ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666))
{
    if (m_fd < 0)
        fail("cannot open " + m_path);
    try {
        if (!m_path.empty())
            readFormer();
        const std::string header = headerOf(format);
        if (!m_former.has_value() && !header.empty() && (m_path.empty() || ::lseek(m_fd, 0, SEEK_END) == 0))
            writeText(header + "\n");
    } catch (...) {
        if (!m_path.empty())
            ::close(m_fd);
        throw;
    }
}

LogFile::~LogFile()
{
    if (!m_path.empty())
        ::close(m_fd);
}

void LogFile::readFormer()
{
    if (::flock(m_fd, LOCK_EX | LOCK_NB) != 0)
        throw Failure(ExitCode::LocalFile, m_path + " is being written by another tessaryctl log",
            "name another file, or end the other one");
    std::ifstream file(m_path);
    std::string line;
    if (!std::getline(file, line))
        return;
    const LogReader reader(line, m_path);
    if (reader.format() != m_format)
        throw Failure(ExitCode::LocalFile, m_path + " has rows in the other format",
            "name another file, or choose the format with --format csv or json");
    if (m_format == LogFormat::Csv && line != headerOf(m_format))
        throw Failure(ExitCode::LocalFile, m_path + " has other columns than this tessaryctl writes",
            "name another file");
    do {
        auto entry = reader.read(line);
        if (entry.has_value())
            m_former = std::move(entry);
        // A power cut may have left half a line: what follows begins a new one.
        if (file.eof() && !line.empty())
            writeText("\n");
    } while (std::getline(file, line));
}

void LogFile::write(const LogEntry& entry)
{
    writeText(lineOf(entry, m_format) + "\n");
    if (!m_path.empty() && ::fdatasync(m_fd) != 0 && errno != EINVAL && errno != EROFS)
        fail("cannot write " + m_path);
}

void LogFile::writeText(const std::string& text) const
{
    std::string_view left = text;
    while (!left.empty()) {
        const ssize_t written = ::write(m_fd, left.data(), left.size());
        if (written > 0)
            left.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            fail("cannot write " + (m_path.empty() ? "to standard output" : m_path));
    }
}

void LogFile::fail(const std::string& what) const
{
    throw Failure(ExitCode::LocalFile, what + ": " + std::strerror(errno),
        "name a file in a folder that you may write to and that has room");
}

} // namespace tessary::ctl
