// The part of system_config that asks the kernel about the wired interface and bridges the settings to nmcli.
#include "system/descriptor.h"
#include "system/network.h"
#include "system/system_config.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <QtDebug>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

ifreq requestFor(const MyData& settings)
{
    ifreq request;
    std::memset(&request, 0, sizeof request);
    request.ifr_addr.sa_family = AF_INET;
    const std::string name = wiredInterfaceName(settings.vlan, settings.vlanId);
    std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
    return request;
}

/// An address of the interface in dotted form and "\n". When the kernel refuses, the request is read back as
/// it stands.
std::string queryAddress(unsigned long ioctlRequest)
{
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM, 0));
    if (!socket.isOpen())
        qDebug("PROBLEME FD");
    ifreq request = requestFor(data);
    if (ioctl(socket.get(), ioctlRequest, &request) < 0)
        qDebug("PROBLEME IOCTL");
    sockaddr_in address;
    std::memcpy(&address, &request.ifr_addr, sizeof address);
    return std::string(inet_ntoa(address.sin_addr)) + "\n";
}

/// The text and errno as it is at the call: making a log line may change it.
void logError(const char* text)
{
    const int error = errno;
    qDebug() << text << error;
}

} // namespace

void system_config::SetupInterfaceIP(MyData* d)
{
    Network().SetStaticIP(d->ipAddress, d->netmask, d->vlan, d->vlanId);
}

void system_config::SetDHCPOn(MyData* d)
{
    Network().SetDHCP(d->vlan, d->vlanId);
}

void system_config::GetIpAddress(std::string* out)
{
    *out = queryAddress(SIOCGIFADDR);
}

void system_config::GetIpNetmask(std::string* out)
{
    *out = queryAddress(SIOCGIFNETMASK);
}

bool system_config::ethernetConneted()
{
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM, 0));
    if (!socket.isOpen())
        logError("Socket failed. Errno =");
    ifreq request = requestFor(data);
    if (ioctl(socket.get(), SIOCGIFFLAGS, &request) < 0)
        logError("Ioctl failed. Errno =");
    return (request.ifr_flags & IFF_UP) && (request.ifr_flags & IFF_RUNNING);
}
