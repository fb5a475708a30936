#include "receiver.h"

#include <arpa/inet.h>
#include <array>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tessary::test {

Receiver::Receiver()
    : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    const int bytes = 8'000'000; // more than a test sends, so that a busy machine loses nothing
    if (::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    const int on = 1;
    ::setsockopt(m_socket, IPPROTO_IP, IP_RECVTTL, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t size = sizeof address;
    if (::bind(m_socket, reinterpret_cast<sockaddr*>(&address), size) != 0
        || ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        ADD_FAILURE() << "no port on loopback";
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { receive(); });
}

Receiver::~Receiver()
{
    finish();
    ::close(m_socket);
}

bool Receiver::join(const char* group) const
{
    ip_mreqn request{};
    ::inet_pton(AF_INET, group, &request.imr_multiaddr);
    request.imr_ifindex = static_cast<int>(::if_nametoindex("lo"));
    return ::setsockopt(m_socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
}

const std::vector<Bytes>& Receiver::datagrams()
{
    finish();
    return m_datagrams;
}

std::string Receiver::target(const std::string& scheme, const std::string& host) const
{
    return scheme + "://" + host + ":" + std::to_string(m_port);
}

void Receiver::finish()
{
    m_finish = true;
    if (m_thread.joinable())
        m_thread.join();
}

void Receiver::receive()
{
    pollfd waiting{m_socket, POLLIN, 0};
    for (;;) {
        const bool last = m_finish;
        while (::poll(&waiting, 1, last ? 0 : 20) == 1)
            takeOne();
        if (last)
            return;
    }
}

void Receiver::takeOne()
{
    Bytes bytes(65536);
    std::array<char, 64> control{};
    iovec data{bytes.data(), bytes.size()};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = ::recvmsg(m_socket, &message, 0);
    if (size < 0)
        return;
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_type == IP_TTL)
        m_timeToLive = *reinterpret_cast<const int*>(CMSG_DATA(header));
    bytes.resize(static_cast<std::size_t>(size));
    m_datagrams.push_back(std::move(bytes));
    m_some = true;
}

Bytes joined(const std::vector<Bytes>& datagrams, std::size_t headerBytes)
{
    Bytes all;
    for (const Bytes& datagram : datagrams)
        append(all, {datagram.begin() + static_cast<std::ptrdiff_t>(headerBytes), datagram.end()});
    return all;
}

} // namespace tessary::test
