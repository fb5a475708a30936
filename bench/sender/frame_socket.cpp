#include "frame_socket.h"

#include <cerrno>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "options.h"

namespace tessary::sender {

namespace {

constexpr std::size_t Ipv4Bytes = 20;
constexpr std::size_t UdpBytes = 8;
constexpr std::uint16_t SourcePort = 1234;

void put16(std::vector<std::uint8_t>& out, std::size_t value)
{
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}

void put32(std::vector<std::uint8_t>& out, std::uint32_t value)
{
    put16(out, value >> 16);
    put16(out, value & 0xFFFFU);
}

/// The complement sum of RFC 791 over an even number of bytes.
std::uint16_t checksumOf(const std::uint8_t* header, std::size_t bytes)
{
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < bytes; at += 2)
        sum += static_cast<std::uint32_t>(header[at] << 8 | header[at + 1]);
    while (sum >> 16 != 0)
        sum = (sum & 0xFFFFU) + (sum >> 16);
    return static_cast<std::uint16_t>(~sum);
}

} // namespace

FrameSocket::FrameSocket(const Target& target)
    : m_group(ntohl(resolve(target).sin_addr.s_addr))
    , m_port(target.port)
    , m_ttl(static_cast<std::uint8_t>(target.ttl))
{
    if (!IN_MULTICAST(m_group))
        throw UsageError("--keep-vlan: " + target.host + " is no multicast group; give one");
    if (::if_nametoindex(target.interface.c_str()) == 0)
        throw UsageError(
            "--keep-vlan: name the interface that the frames leave by, for example --interface eth0");
    m_socket = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (m_socket < 0)
        throw NetworkError(
            std::string("no packet socket: ") + std::strerror(errno) + "; frames with VLAN tags need root");
    try {
        bindTo(target.interface);
    } catch (...) {
        ::close(m_socket);
        throw;
    }
}

FrameSocket::~FrameSocket()
{
    ::close(m_socket);
}

void FrameSocket::bindTo(const std::string& interface)
{
    ifreq request{};
    interface.copy(request.ifr_name, IFNAMSIZ - 1);
    if (::ioctl(m_socket, SIOCGIFHWADDR, &request) == 0)
        std::memcpy(m_ownMac, request.ifr_hwaddr.sa_data, sizeof m_ownMac);
    request.ifr_addr.sa_family = AF_INET;
    const int plain = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (plain >= 0 && ::ioctl(plain, SIOCGIFADDR, &request) == 0) {
        sockaddr_in own{};
        std::memcpy(&own, &request.ifr_addr, sizeof own);
        m_ownAddress = ntohl(own.sin_addr.s_addr);
    }
    if (plain >= 0)
        ::close(plain);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
    if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw NetworkError(interface + ": " + std::strerror(errno) + "; check it with `ip link`");
}

void FrameSocket::writeHeaders(const Datagram& datagram)
{
    m_frame.clear();
    const std::uint32_t group = m_group;
    // RFC 1112: a group's Ethernet address is 01:00:5E and its lower 23 bits.
    for (const std::uint32_t byte :
        {0x01U, 0x00U, 0x5EU, group >> 16 & 0x7FU, group >> 8 & 0xFFU, group & 0xFFU})
        m_frame.push_back(static_cast<std::uint8_t>(byte));
    m_frame.insert(m_frame.end(), m_ownMac, m_ownMac + sizeof m_ownMac);
    m_frame.insert(m_frame.end(), datagram.vlanTags, datagram.vlanTags + datagram.vlanBytes);
    put16(m_frame, ETHERTYPE_IP);
    const std::size_t ip = m_frame.size();
    put16(m_frame, 0x4500);
    put16(m_frame, Ipv4Bytes + UdpBytes + datagram.size);
    put16(m_frame, m_identification++);
    put16(m_frame, 0x4000); // not to be fragmented
    put16(m_frame, static_cast<std::size_t>(m_ttl) << 8 | IPPROTO_UDP);
    put16(m_frame, 0);
    put32(m_frame, m_ownAddress);
    put32(m_frame, group);
    const std::uint16_t sum = checksumOf(&m_frame[ip], Ipv4Bytes);
    m_frame[ip + 10] = static_cast<std::uint8_t>(sum >> 8);
    m_frame[ip + 11] = static_cast<std::uint8_t>(sum);
    put16(m_frame, SourcePort);
    put16(m_frame, m_port);
    put16(m_frame, UdpBytes + datagram.size);
    put16(m_frame, 0); // no checksum, which RFC 768 allows
}

int FrameSocket::send(const Datagram& datagram)
{
    writeHeaders(datagram);
    m_frame.insert(m_frame.end(), datagram.data, datagram.data + datagram.size);
    for (;;) {
        if (::send(m_socket, m_frame.data(), m_frame.size(), 0) >= 0)
            return 0;
        if (errno != EINTR)
            return errno;
    }
}

} // namespace tessary::sender
