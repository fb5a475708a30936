#include "streamframes.h"

#include "kit/packets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <stdexcept>

namespace {

using namespace tessary::test;
using Frame = Bytes;

constexpr std::size_t ethernetBytes = 14;
constexpr unsigned ipBytes = 20;
constexpr unsigned udpBytes = 8;
constexpr unsigned rtpBytes = 12;
constexpr unsigned firstPid = 0x100;

void appendAddress(Frame& frame, const std::string& text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        throw std::invalid_argument(text + " is no IPv4 address");
    const auto* bytes = reinterpret_cast<const unsigned char*>(&address);
    frame.insert(frame.end(), bytes, bytes + sizeof address);
}

/// RFC 791: ones' complement of the ones' complement sum.
void setIpChecksum(Frame& frame)
{
    unsigned sum = 0;
    for (std::size_t i = ethernetBytes; i < ethernetBytes + ipBytes; i += 2)
        sum += static_cast<unsigned>(frame[i] << 8 | frame[i + 1]);
    while (sum > 0xffff)
        sum = (sum & 0xffff) + (sum >> 16);
    frame[ethernetBytes + 10] = static_cast<unsigned char>(~sum >> 8);
    frame[ethernetBytes + 11] = static_cast<unsigned char>(~sum);
}

void appendHeaders(Frame& frame, const FrameOptions& options, unsigned payload)
{
    frame.insert(frame.end(), options.destinationMac.begin(), options.destinationMac.end());
    for (const int byte : {0x02, 0x74, 0x65, 0x73, 0x73, 0x02})
        frame.push_back(static_cast<unsigned char>(byte));
    append16(frame, 0x0800);
    append16(frame, 0x4500);
    append16(frame, ipBytes + udpBytes + payload);
    append16(frame, 0);
    append16(frame, 0x4000); // do not fragment
    append16(frame, 4 << 8 | 17); // time to live, UDP
    append16(frame, 0);
    appendAddress(frame, "192.168.77.1");
    appendAddress(frame, options.destination);
    setIpChecksum(frame);
    append16(frame, options.port);
    append16(frame, options.port);
    append16(frame, udpBytes + payload);
    append16(frame, 0); // no checksum
}

void appendPackets(Frame& frame, unsigned packets, unsigned counter)
{
    for (unsigned i = 0; i < packets; ++i)
        append(frame, packet(firstPid + i, counter, lowByte(0xa5 + i)));
}

} // namespace

std::vector<Frame> streamFrames(const FrameOptions& options)
{
    std::vector<Frame> frames(frameCycle);
    for (unsigned counter = 0; counter < frameCycle; ++counter) {
        Frame& frame = frames[counter];
        appendHeaders(frame, options, (options.rtp ? rtpBytes : 0) + options.packets * tsPacketBytes);
        if (options.rtp) {
            append16(frame, 0x8021); // version 2, payload type 33 (RFC 3551)
            append16(frame, counter);
            frame.insert(frame.end(), rtpBytes - 4, 0);
        }
        appendPackets(frame, options.packets, counter);
    }
    return frames;
}

namespace {

// What libpcap asks of the kernel for an Ethernet interface; "ss -0 -e" shows it.
constexpr std::size_t ringSlots = 1310;
constexpr std::size_t pageBytes = 4096;
constexpr std::size_t slotBytes = 1600;
constexpr std::size_t slotHeaderBytes = 70;

std::size_t placeInRing(std::size_t slot)
{
    return slot / 2 * pageBytes + slot % 2 * slotBytes + slotHeaderBytes;
}

} // namespace

FrameRing::FrameRing(const std::vector<Frame>& frames)
    : m_memory(ringSlots / 2 * pageBytes)
{
    for (std::size_t slot = 0; slot < ringSlots; ++slot) {
        const Frame& frame = frames[slot % frames.size()];
        std::copy(
            frame.begin(), frame.end(), m_memory.begin() + static_cast<std::ptrdiff_t>(placeInRing(slot)));
    }
}

const unsigned char* FrameRing::next()
{
    const unsigned char* const frame = &m_memory[placeInRing(m_next)];
    m_next = m_next + 1 == ringSlots ? 0 : m_next + 1;
    return frame;
}
