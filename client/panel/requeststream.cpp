#include "client/panel/requeststream.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

namespace tessary::panel {

using std::chrono::milliseconds;

namespace {

constexpr std::size_t chunkSize = 16 * 1024;
constexpr milliseconds slice{100}; // between two looks at whether the panel ends

/// Waits until the socket is so, but no longer.
bool isSo(int socket, short events, milliseconds patience)
{
    pollfd waited{socket, events, 0};
    return ::poll(&waited, 1, static_cast<int>(patience.count())) > 0;
}

bool isGone(int socket)
{
    char byte = 0;
    const ssize_t count = ::recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

/// No part of an answer is sent alone: the library would put together whatever a list of ranges asks for, the same bytes any
/// number of times.
std::string withoutRanges(const std::string& head)
{
    constexpr const char* name = "range:";
    std::string kept;
    for (std::size_t begin = 0; begin < head.size();) {
        const std::size_t end = std::min(head.find('\n', begin), head.size() - 1) + 1;
        if (::strncasecmp(head.c_str() + begin, name, std::strlen(name)) != 0)
            kept.append(head, begin, end - begin);
        begin = end;
    }
    return kept;
}

void tellAddress(const sockaddr_storage& address, socklen_t size, std::string& ip, int& port)
{
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> service{};
    if (::getnameinfo(reinterpret_cast<const sockaddr*>(&address), size, host.data(), NI_MAXHOST,
            service.data(), NI_MAXSERV, NI_NUMERICHOST | NI_NUMERICSERV)
        != 0)
        return;
    ip = host.data();
    port = static_cast<int>(std::strtol(service.data(), nullptr, 10));
}

} // namespace

RequestStream::RequestStream(int socket, const RequestLimits& limits, const std::atomic<bool>& ends)
    : m_socket(socket)
    , m_limits(limits)
    , m_ends(ends)
    , m_deadline(Clock::now() + limits.whole)
{
}

RequestStream::Head RequestStream::awaitHead()
{
    static const std::string end = "\r\n\r\n";
    std::string came;
    std::size_t at = came.find(end);
    while (at == std::string::npos && came.size() <= m_limits.headBytes) {
        if (!receive(came))
            return came.empty() ? Head::None : Head::Late;
        at = came.find(end);
    }
    if (at == std::string::npos || at > m_limits.headBytes)
        return Head::TooLarge;
    at += end.size();
    m_rest = came.substr(at);
    m_head = withoutRanges(came.substr(0, at));
    return Head::Whole;
}

void RequestStream::expectBody(std::uint64_t bytes)
{
    constexpr std::uint64_t most = 1ULL << 32U; // of more the time is of no use
    m_bodyLeft = bytes;
    m_deadline = Clock::now() + m_limits.whole
        + std::chrono::seconds(std::min(bytes, most) / m_limits.leastBytesPerSecond);
}

void RequestStream::finish()
{
    constexpr milliseconds patience{1000};
    ::shutdown(m_socket, SHUT_WR);
    std::array<char, chunkSize> thrownAway{};
    for (const auto end = Clock::now() + patience; Clock::now() < end && !m_ends;) {
        if (isSo(m_socket, POLLIN, slice) && ::recv(m_socket, thrownAway.data(), thrownAway.size(), 0) <= 0)
            return;
    }
}

/// More bytes behind those that are there; false when none come in time.
bool RequestStream::receive(std::string& bytes) const
{
    const auto end = std::min(m_deadline, Clock::now() + m_limits.silence);
    while (!isSo(m_socket, POLLIN, slice)) {
        if (m_ends || Clock::now() >= end)
            return false;
    }
    if (Clock::now() >= m_deadline)
        return false;
    std::array<char, chunkSize> chunk{};
    const ssize_t count = ::recv(m_socket, chunk.data(), chunk.size(), 0);
    if (count <= 0)
        return false;
    bytes.append(chunk.data(), static_cast<std::size_t>(count));
    return true;
}

bool RequestStream::is_readable() const
{
    return m_headRead < m_head.size() || !m_rest.empty() || isSo(m_socket, POLLIN, m_limits.silence);
}

bool RequestStream::is_writable() const
{
    return isSo(m_socket, POLLOUT, m_limits.silence) && !isGone(m_socket);
}

ssize_t RequestStream::read(char* bytes, std::size_t size)
{
    if (m_headRead < m_head.size()) {
        const std::size_t count = m_head.copy(bytes, size, m_headRead);
        m_headRead += count;
        return static_cast<ssize_t>(count);
    }
    if (m_bodyLeft == 0)
        return 0;
    if (m_rest.empty() && !receive(m_rest))
        return -1;
    const std::size_t count =
        m_rest.copy(bytes, static_cast<std::size_t>(std::min<std::uint64_t>(size, m_bodyLeft)));
    m_rest.erase(0, count);
    m_bodyLeft -= count;
    return static_cast<ssize_t>(count);
}

ssize_t RequestStream::write(const char* bytes, std::size_t size)
{
    return is_writable() ? ::send(m_socket, bytes, size, MSG_NOSIGNAL) : -1;
}

void RequestStream::get_remote_ip_and_port(std::string& ip, int& port) const
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getpeername(m_socket, reinterpret_cast<sockaddr*>(&address), &size) == 0)
        tellAddress(address, size, ip, port);
}

void RequestStream::get_local_ip_and_port(std::string& ip, int& port) const
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) == 0)
        tellAddress(address, size, ip, port);
}

} // namespace tessary::panel
