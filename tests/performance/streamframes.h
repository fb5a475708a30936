#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Ethernet frames of a transport stream over UDP or RTP, the load of all measurements here.

constexpr int tsPacketBytes = 188;
/// After so many frames the continuity counters are back where they began.
constexpr unsigned frameCycle = 16;

struct FrameOptions
{
    std::array<unsigned char, 6> destinationMac{0x01, 0x00, 0x5e, 0x00, 0x00, 0x01}; ///< of 239.0.0.1
    std::string destination = "239.0.0.1"; ///< IPv4, dotted decimal
    std::uint16_t port = 1234;
    unsigned packets = 7; ///< TS packets in a datagram
    bool rtp = false;
};

/// `frameCycle` frames that, sent over and over in this order, carry a stream without continuity errors: each
/// of a frame's packets has a PID of its own (ISO/IEC 13818-1, 2.4.3.2), from 0x100 on. The IPv4 header has
/// its checksum; UDP goes without.
std::vector<std::vector<unsigned char>> streamFrames(const FrameOptions& options);

/// The frames over and over where libpcap's ring has them: two in a page, each behind what the kernel tells
/// about it, 2.7 MB in all. When a place comes again, the nearer caches of a processor have long lost it.
class FrameRing
{
public:
    explicit FrameRing(const std::vector<std::vector<unsigned char>>& frames);
    const unsigned char* next();

private:
    std::vector<unsigned char> m_memory;
    std::size_t m_next = 0;
};
