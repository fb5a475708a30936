#pragma once

#include <cstdint>
#include <vector>

#include "datagram_socket.h"

namespace tessary::sender {

/// Sends datagrams in Ethernet frames of its own making, so that they can carry VLAN tags: to a multicast
/// group, from the interface's addresses. Owns a packet socket; blocks while the interface's queue is full.
class FrameSocket : public Outlet
{
public:
    /// Throws UsageError when the target is no group or has no interface, NetworkError when the interface or
    /// the permission is missing.
    explicit FrameSocket(const Target& target);
    ~FrameSocket() override;
    FrameSocket(const FrameSocket&) = delete;
    FrameSocket& operator=(const FrameSocket&) = delete;

    int send(const Datagram& datagram) override;

private:
    void bindTo(const std::string& interface);
    void writeHeaders(const Datagram& datagram);

    int m_socket = -1;
    std::uint32_t m_group; ///< host byte order
    std::uint16_t m_port;
    std::uint8_t m_ttl;
    std::uint32_t m_ownAddress = 0; ///< of the interface, host byte order; 0: it has none
    std::uint8_t m_ownMac[6] = {};
    std::uint16_t m_identification = 0;
    std::vector<std::uint8_t> m_frame;
};

} // namespace tessary::sender
