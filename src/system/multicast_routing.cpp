// Multicast membership through the `smcroute` daemon: the routing part of Network.
#include "system/mydata.h"
#include "system/network.h"
#include "system/program.h"
#include "system/shell.h"
#include "system/system_config.h"

#include <unistd.h>

namespace {

constexpr int maxJoinAttempts = 3;

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
    runProgram("smcroute -k");
    usleep(100000);
    runProgram("smcroute -d");
    sleep(1);
}

} // namespace

void Network::StartSmcroute()
{
    if (smcrouteStarted)
        return;
    writeToConsole(runProgram("smcroute -d").errors);
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
        const std::string errors = runProgram(command).errors;
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
