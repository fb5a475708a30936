// Multicast membership through the `smcroute` daemon: the routing part of Network.
#include "system/mydata.h"
#include "system/network.h"
#include "system/shell.h"
#include "system/system_config.h"

#include <QProcess>
#include <QString>
#include <QStringList>
#include <unistd.h>

namespace {

constexpr int maxJoinAttempts = 3;

/// Runs a program to its end without time limit. Returns what it wrote to standard error, up to the first NUL
/// byte.
std::string errorsOf(const std::string& commandLine)
{
    QStringList words = QProcess::splitCommand(QString::fromStdString(commandLine));
    const QString program = words.takeFirst();
    QProcess process;
    process.start(program, words, QIODevice::ReadWrite);
    process.waitForFinished(-1);
    return std::string(process.readAllStandardError().constData());
}

void writeToConsole(const std::string& text)
{
    systconf.special_debug(text.c_str(), static_cast<int>(text.size()));
}

/// Command with the wired interface and the stream server's group.
std::string groupCommand(const char* option)
{
    return std::string("smcroute ") + option + " " + wiredInterfaceName(data.vlan, data.vlanId) + " "
        + data.serverAddress;
}

/// Any other error text counts as success: smcroute complains about a group that is joined already, for
/// example.
bool joinFailed(const std::string& errors)
{
    return errors.find("unknown interface eth0") != std::string::npos
        || errors.find("No such device") != std::string::npos;
}

void restartRoutingDaemon()
{
    errorsOf("smcroute -k");
    usleep(100000);
    errorsOf("smcroute -d");
    sleep(1);
}

} // namespace

void Network::StartSmcroute()
{
    if (smcrouteStarted)
        return;
    writeToConsole(errorsOf("smcroute -d"));
    smcrouteStarted = true;
    writeToConsole("StartSmcroute()\r\n");
}

void Network::StopSmcroute()
{
    if (!smcrouteStarted)
        return;
    runShell("smcroute -k");
    writeToConsole("StopSmcroute()\r\n");
    smcrouteStarted = false;
}

void Network::SendJoinMulticast()
{
    if (!smcrouteStarted)
        StartSmcroute();
    for (int attempt = 0; attempt < maxJoinAttempts; ++attempt) {
        writeToConsole("SendJoinMulticast()\r\n");
        const std::string command = groupCommand("-j");
        const std::string errors = errorsOf(command);
        writeToConsole(command);
        writeToConsole("$$$$$$$$$$$$$$$$$$$$$$$$$$$$$ " + errors + " $$$$$$$$$$$$$$$$$$$$$$$$$$$$$");
        if (!joinFailed(errors)) {
            joinRequested.store(false, std::memory_order_release);
            return;
        }
        restartRoutingDaemon();
    }
}

void Network::SendLeaveMulticast()
{
    const std::string command = groupCommand("-l");
    runShell(command);
    writeToConsole(command);
}
