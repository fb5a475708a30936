#include "system/network.h"

#include "system/program.h"
#include "system/shell.h"

#include <cmath>
#include <QString>
#include <QStringList>

namespace {

void deleteConnections()
{
    runShell("nmcli con del \"Wired connection 1\"");
    runShell("nmcli con del \"Wired connection 1_vlan\"");
}

std::string gatewayOf(const std::string& ip)
{
    const QStringList fields = QString::fromStdString(ip).split('.');
    return (fields.value(0) + '.' + fields.value(1) + '.' + fields.value(2) + ".254").toStdString();
}

} // namespace

void Network::SetDHCP(bool vlan, std::string vlanId)
{
    deleteConnections();
    if (vlan)
        runShell("nmcli con add type vlan con-name \"Wired connection 1_vlan\" dev eth0 id " + vlanId);
    else
        runShell("nmcli con add con-name \"Wired connection 1\" ifname eth0 type ethernet");
}

void Network::SetStaticIP(std::string ip, std::string mask, bool vlan, std::string vlanId)
{
    deleteConnections();
    const std::string address = ip + "/" + std::to_string(HowManyBitsInMask(mask));
    if (vlan) {
        // No gateway here, on purpose: a VLAN carries streams only, the default route stays with the plain
        // connection.
        runShell("nmcli con add type vlan con-name \"Wired connection 1_vlan\" dev eth0 id " + vlanId
            + " ip4 " + address);
    } else {
        runShell("nmcli con add con-name \"Wired connection 1\" ifname eth0 type ethernet ip4 " + address
            + " gw4 " + gatewayOf(ip));
    }
}

unsigned Network::HowManyBitsInMask(std::string mask)
{
    const QStringList octets = QString::fromStdString(mask).split('.');
    // Counted by logarithms on purpose: 255.255.255.128 gives 31, and that is what nmcli is told.
    double bits = 0;
    for (int i = 0; i < 4; ++i)
        bits = std::trunc(bits + std::log2(octets.value(i).toInt() + 1.0));
    const bool countable = bits >= 0 && bits < 33; // negative octets have no logarithm and count as too many
    return countable ? static_cast<unsigned>(bits) : 24;
}

std::string Network::GetIpStatus()
{
    const std::string addresses = runProgram("ifconfig eth0").output;
    const std::string link = runProgram("ethtool eth0").output;
    // Throws when there is no "Speed": the dispatcher logs it.
    return addresses + link.substr(link.find("Speed"));
}
