#include "frames.h"

namespace {

constexpr std::size_t ethernetSize = 14;
constexpr std::size_t ipSize = 20;
constexpr std::size_t udpSize = 8;

void put16(Bytes& bytes, std::size_t offset, std::size_t value)
{
    bytes[offset] = static_cast<unsigned char>(value >> 8);
    bytes[offset + 1] = static_cast<unsigned char>(value);
}

} // namespace

Bytes datagram(protocol transport, const Bytes& payload)
{
    static const Bytes headers{
        0x01, 0x00, 0x5e, 0x00, 0x00, 0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00, // Ethernet
        0x45, 0x00, 0x00, 0x00, 0x00, 0x00, 0x40, 0x00, 0x10, 0x11, 0x00, 0x00, // IPv4: length at 16
        192, 168, 77, 1, 239, 0, 0, 1, // from, to
        0x13, 0x8c, 0x04, 0xd2, 0x00, 0x00, 0x00, 0x00, // UDP 5004 to 1234: length at 38
    };
    static const Bytes rtpHeader{0x80, 33, 0, 1, 0, 0, 0, 1, 0x12, 0x34, 0x56, 0x78}; // payload type MP2T
    const bool rtp = transport == protocolRtp || transport == protocolRtpT2mi;
    Bytes frame = join({headers, rtp ? rtpHeader : Bytes(), payload});
    put16(frame, 16, frame.size() - ethernetSize);
    put16(frame, ethernetSize + ipSize + 4, frame.size() - ethernetSize - ipSize);
    return frame;
}

void setUdpLength(Bytes& frame, unsigned length)
{
    put16(frame, ethernetSize + ipSize + udpSize - 4, length);
}

Bytes tsPacket(
    unsigned pid, unsigned continuityCounter, AdaptationFieldControl control, bool discontinuityIndicator)
{
    const std::uint8_t flags = discontinuityIndicator ? 0x80 : 0x00;
    return makePacket(pid, continuityCounter, {control, {flags}});
}

pcap_pkthdr headerOf(const Bytes& frame, std::int64_t microseconds)
{
    pcap_pkthdr header{};
    header.ts.tv_sec = microseconds / 1000000;
    header.ts.tv_usec = microseconds % 1000000;
    header.caplen = static_cast<bpf_u_int32>(frame.size());
    header.len = header.caplen;
    return header;
}
