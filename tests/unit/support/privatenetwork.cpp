#include "support/privatenetwork.h"

#include "support/eventually.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr const char* ipProgram = "/usr/sbin/ip"; // tests replace PATH

bool entered = false;

bool hasLink(const std::string& name)
{
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool known = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    close(fd);
    return known && (request.ifr_flags & IFF_RUNNING);
}

} // namespace

namespace privatenetwork {

std::string enter()
{
    if (entered)
        return {};
    if (access(ipProgram, X_OK) != 0)
        return std::string(ipProgram) + " is missing (install iproute2)";
    if (unshare(CLONE_NEWNET) != 0)
        return std::string("unshare: ") + std::strerror(errno)
            + " (run as root to have a private network namespace)";
    entered = true;
    return {};
}

bool ip(const std::string& arguments)
{
    return entered && std::system((std::string(ipProgram) + " " + arguments + " >&- 2>&-").c_str()) == 0;
}

bool addVethPair(const std::string& name, const std::string& peer, const std::string& address)
{
    return ip("link add " + name + " type veth peer name " + peer) && ip("link set " + name + " up")
        && ip("link set " + peer + " up") && (address.empty() || ip("addr add " + address + " dev " + name))
        && waitForLink(name, true);
}

bool waitForLink(const std::string& name, bool present)
{
    return eventually([&] { return hasLink(name) == present; });
}

void remove(const std::string& name)
{
    if (if_nametoindex(name.c_str()) != 0)
        ip("link del " + name);
}

} // namespace privatenetwork
