#include "commandresult.h"

#include <csignal>
#include <sys/prctl.h>

namespace tessary::test {

GuardedProcess::~GuardedProcess()
{
    endGracefully(20000);
}

void GuardedProcess::endGracefully(int milliseconds)
{
    if (state() == QProcess::NotRunning)
        return;
    terminate();
    if (!waitForFinished(milliseconds)) {
        kill();
        waitForFinished(5000);
    }
}

void GuardedProcess::setupChildProcess()
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
}

CommandResult runCommand(const QString& program, const QStringList& arguments, int milliseconds)
{
    GuardedProcess process;
    process.start(program, arguments);
    CommandResult result;
    const bool ended = process.waitForStarted() && process.waitForFinished(milliseconds);
    result.output = process.readAllStandardOutput();
    result.errors = process.readAllStandardError();
    if (!ended)
        result.errors += "(" + program.toUtf8() + " did not start or did not end in time)";
    else if (process.exitStatus() == QProcess::NormalExit)
        result.status = process.exitCode();
    return result;
}

} // namespace tessary::test
