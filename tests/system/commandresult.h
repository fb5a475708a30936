#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>

namespace tessary::test {

/// How long a test waits for what must happen: it waits so long only when it fails, so this is long enough
/// for any machine that has other work as well.
constexpr int patienceMilliseconds = 180000;

/// A child that gets SIGTERM when the test ends in any way, a crash and Ctrl-C included, so that nothing
/// stays behind.
class GuardedProcess : public QProcess
{
public:
    using QProcess::QProcess;
    /// Asks it to end and waits; kills it when it does not.
    ~GuardedProcess() override;

    /// SIGTERM, then up to `milliseconds` for the end.
    void endGracefully(int milliseconds);

protected:
    void setupChildProcess() override;
};

/// How a program that ran to its end ended.
struct CommandResult
{
    int status = -1; ///< exit status; -1 when it did not start, crashed or took too long
    QByteArray output;
    QByteArray errors;

    bool ok() const { return status == 0; }
};

/// Runs a program to its end, at most `milliseconds`.
CommandResult runCommand(
    const QString& program, const QStringList& arguments, int milliseconds = patienceMilliseconds);

} // namespace tessary::test
