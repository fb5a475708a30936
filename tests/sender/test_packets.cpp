#include "test_packets.h"

#include <cmath>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tessary::test {

namespace {

/// Packet `index` of the small stream, whose PID 256 was sent `sent256` times before.
Bytes streamPacket(std::size_t index, unsigned sent256, double bitsPerSecond)
{
    if (index % 16 == 0) {
        const double seconds = static_cast<double>(index * 188 * 8) / bitsPerSecond;
        const auto ticks = static_cast<std::uint64_t>(std::llround(seconds * 27e6));
        return packetWithPcr(256, sent256, ticks / 300, static_cast<unsigned>(ticks % 300));
    }
    if (index % 16 != 1)
        return packet(256, sent256, lowByte(index));
    const Bytes pes{0, 0, 1, 0xE0, 0, 0, 0x80, 0x80, 5, 0x21, 0x00, 0x01, 0x00, 0x01};
    return makePacket(256, sent256, {payloadOnly, {}, pes, true, lowByte(index)});
}

} // namespace

Bytes smallStream(std::size_t packets, double bitsPerSecond)
{
    Bytes stream;
    unsigned sent256 = 0;
    unsigned sent257 = 9;
    for (std::size_t i = 0; i < packets; ++i) {
        Bytes next;
        if (i % 16 == 5)
            next = packet(257, sent257++, static_cast<std::uint8_t>(i));
        else if (i % 16 == 9)
            next = packet(0x1FFF, 0, 0xFF);
        else
            next = streamPacket(i, sent256++, bitsPerSecond);
        append(stream, next);
    }
    return stream;
}

std::string writeFile(const std::string& name, const Bytes& bytes)
{
    // ctest runs the cases as processes side by side.
    std::string path = ::testing::TempDir() + "tessary-sender-" + std::to_string(::getpid()) + "-" + name;
    writeBytes(path, bytes);
    return path;
}

} // namespace tessary::test
