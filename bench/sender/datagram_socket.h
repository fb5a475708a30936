#pragma once

#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <stdexcept>
#include <string>

#include "datagram_source.h"

namespace tessary::sender {

/// The network refuses; what() names the cause and the remedy.
class NetworkError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Where and how datagrams go.
struct Target
{
    std::string host; ///< IPv4 address or name
    std::uint16_t port = 0;
    int ttl = 4;
    std::string interface; ///< for multicast: name or own IPv4 address; empty: the routing table decides
    bool multicastLoop = false;
};

/// The target's address. Throws NetworkError.
sockaddr_in resolve(const Target& target);

/// Where datagrams leave the machine.
class Outlet
{
public:
    virtual ~Outlet() = default;

    /// Sends one datagram. Returns 0, or the error number (errno values).
    virtual int send(const Datagram& datagram) = 0;

    /// True for errors that pass when a link comes up again: interface down, no route, no buffer.
    static bool isPassing(int error);
};

/// An IPv4 UDP socket that sends to one address. Owns the socket; blocks while the socket's buffer is full.
class DatagramSocket : public Outlet
{
public:
    /// Throws NetworkError.
    explicit DatagramSocket(const Target& target);
    ~DatagramSocket() override;
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;

    int send(const Datagram& datagram) override;

private:
    void setOptions(const Target& target);
    void setOption(int option, const void* value, socklen_t size, const char* what);

    int m_socket = -1;
    sockaddr_in m_address{};
};

} // namespace tessary::sender
