#include "datagram_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tessary::sender {

sockaddr_in resolve(const Target& target)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int status =
        ::getaddrinfo(target.host.c_str(), std::to_string(target.port).c_str(), &hints, &found);
    if (status != 0)
        throw NetworkError(
            target.host + ": " + ::gai_strerror(status) + "; give an IPv4 address or a known host name");
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    ::freeaddrinfo(found);
    return address;
}

namespace {

ip_mreqn findInterface(const std::string& name)
{
    ip_mreqn request{};
    if (::inet_pton(AF_INET, name.c_str(), &request.imr_address) == 1)
        return request;
    request.imr_ifindex = static_cast<int>(::if_nametoindex(name.c_str()));
    if (request.imr_ifindex == 0)
        throw NetworkError(
            name + ": no such interface; give a name from `ip link` or one of this machine's addresses");
    return request;
}

} // namespace

DatagramSocket::DatagramSocket(const Target& target)
    : m_address(resolve(target))
{
    m_socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_socket < 0)
        throw NetworkError(
            std::string("no UDP socket: ") + std::strerror(errno) + "; close some open files and try again");
    try {
        setOptions(target);
    } catch (...) {
        ::close(m_socket);
        throw;
    }
}

DatagramSocket::~DatagramSocket()
{
    ::close(m_socket);
}

void DatagramSocket::setOption(int option, const void* value, socklen_t size, const char* what)
{
    if (::setsockopt(m_socket, IPPROTO_IP, option, value, size) != 0)
        throw NetworkError(
            std::string(what) + ": " + std::strerror(errno) + "; check the value with `ip address`");
}

void DatagramSocket::setOptions(const Target& target)
{
    const int loop = target.multicastLoop ? 1 : 0;
    setOption(IP_TTL, &target.ttl, sizeof target.ttl, "time to live");
    setOption(IP_MULTICAST_TTL, &target.ttl, sizeof target.ttl, "multicast time to live");
    setOption(IP_MULTICAST_LOOP, &loop, sizeof loop, "multicast loop");
    if (!target.interface.empty()) {
        const ip_mreqn request = findInterface(target.interface);
        setOption(IP_MULTICAST_IF, &request, sizeof request, "multicast interface");
    }
}

int DatagramSocket::send(const Datagram& datagram)
{
    for (;;) {
        const ssize_t sent = ::sendto(m_socket, datagram.data, datagram.size, 0,
            reinterpret_cast<const sockaddr*>(&m_address), sizeof m_address);
        if (sent >= 0)
            return 0;
        if (errno != EINTR)
            return errno;
    }
}

bool Outlet::isPassing(int error)
{
    return error == ENETDOWN || error == ENETUNREACH || error == EHOSTUNREACH || error == ENOBUFS
        || error == ENODEV || error == EADDRNOTAVAIL || error == ECONNREFUSED;
}

} // namespace tessary::sender
