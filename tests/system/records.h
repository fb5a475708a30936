#pragma once

#include <cstdint>
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <vector>

namespace tessary::test {

/// A command that ran inside the instrument, as its command log noted it.
struct RecordedCommand
{
    std::int64_t time = 0; ///< ns, CLOCK_MONOTONIC
    QString parent; ///< "tessary" when the daemon itself started it
    QString folder; ///< working directory
    QString kind; ///< "shell", "program" or "stand-in"
    QStringList arguments; ///< with the program's name; for the shell: "sh", "-c" and the text

    /// The text as the daemon wrote it for its shell, or the arguments joined by blanks.
    QString text() const;
};

/// A piece of what passed the serial line.
struct LineEntry
{
    std::int64_t time = 0; ///< ns, CLOCK_MONOTONIC
    bool fromDaemon = false;
    QByteArray bytes;
};

/// Reads the command log's log; unfinished last lines are left for the next reading.
std::vector<RecordedCommand> readCommands(const QString& path);

/// Takes a line of a serial line's log apart.
LineEntry readLineEntry(const QByteArray& line);

/// Reads the log of a serial line.
std::vector<LineEntry> readLineLog(const QString& path);

} // namespace tessary::test
