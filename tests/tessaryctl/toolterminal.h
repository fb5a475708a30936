#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <sys/types.h>

namespace tessary::test {

/// The tool on a terminal of its own, as a person uses it.
class ToolTerminal
{
public:
    /// Runs it on this port; what it remembers goes below `stateFolder`.
    ToolTerminal(const QString& port, const QStringList& arguments, const QString& stateFolder);
    ~ToolTerminal();
    ToolTerminal(const ToolTerminal&) = delete;
    ToolTerminal& operator=(const ToolTerminal&) = delete;

    void type(const char* keys) const;

    /// Reads until these words have been seen since the start; tells whether they came.
    bool shows(const QByteArray& words);
    const QByteArray& seen() const { return m_seen; }

    /// Waits for its end; the exit status, -1 when it did not end by itself.
    int waitForEnd();

private:
    void readWhatIsThere();

    int m_far = -1;
    pid_t m_pid = -1;
    int m_status = -1; ///< of waitpid
    bool m_ended = false;
    QByteArray m_seen;
};

} // namespace tessary::test
