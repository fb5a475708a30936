#pragma once

#include "test_packets.h"

/// Captures made by hand for the sender's tests.
namespace tessary::test {

/// Where a captured datagram went, and how.
struct Captured
{
    std::int64_t timeNs = 0;
    std::uint32_t address = 0xEF010203; ///< 239.1.2.3
    std::uint16_t port = 5000;
    Bytes payload{};
    Bytes tags{}; ///< IEEE 802.1Q
    unsigned fragment = 0; ///< the header's flags and offset
};

/// Its Ethernet frame.
Bytes frameOf(const Captured& datagram);

/// An RTP header with one contributing source and an extension of one word before `payload`.
Bytes asRtp(const Bytes& payload);

/// A pcap file in nanoseconds by libpcap; of each frame no more than `snapLength` bytes.
std::string writePcap(
    const std::string& name, const std::vector<Captured>& datagrams, std::size_t snapLength = 65535);

/// A pcapng file in nanoseconds: section header, interface description, an enhanced packet block each.
std::string writePcapng(const std::string& name, const std::vector<Captured>& datagrams);

/// A file of another link layer with one frame of it.
std::string writeOtherPcap(const std::string& name, int linkLayer, const Bytes& frame);

} // namespace tessary::test
