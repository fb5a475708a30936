#include "test_packets.h"

#include <cmath>
#include <fstream>
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
    Bytes bytes = packet(256, sent256, static_cast<std::uint8_t>(index));
    if (index % 16 == 1) {
        bytes[1] |= 0x40U;
        const std::array<std::uint8_t, 14> pes{
            0, 0, 1, 0xE0, 0, 0, 0x80, 0x80, 5, 0x21, 0x00, 0x01, 0x00, 0x01};
        std::copy(pes.begin(), pes.end(), bytes.begin() + 4);
    }
    return bytes;
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
        stream.insert(stream.end(), next.begin(), next.end());
    }
    return stream;
}

std::string writeFile(const std::string& name, const Bytes& bytes)
{
    // ctest runs the cases as processes side by side.
    std::string path = ::testing::TempDir() + "tessary-sender-" + std::to_string(::getpid()) + "-" + name;
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return path;
}

} // namespace tessary::test
