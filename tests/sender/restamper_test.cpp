#include <gtest/gtest.h>

#include "restamper.h"
#include "test_packets.h"
#include "ts_packet.h"

namespace tessary::sender {
namespace {

using namespace tessary::test;

constexpr std::uint64_t StampRange = std::uint64_t{1} << 33;

std::array<std::uint8_t, 5> stampBytes(unsigned prefix, std::uint64_t stamp)
{
    return {static_cast<std::uint8_t>((prefix << 4) | ((stamp >> 30 & 7) << 1) | 1),
        static_cast<std::uint8_t>(stamp >> 22), static_cast<std::uint8_t>((stamp >> 15 & 0x7F) << 1 | 1),
        static_cast<std::uint8_t>(stamp >> 7), static_cast<std::uint8_t>((stamp & 0x7F) << 1 | 1)};
}

Bytes pesStart(std::uint8_t streamId, std::uint64_t pts, std::uint64_t dts)
{
    Bytes bytes = packet(256, 0);
    bytes[1] |= 0x40U;
    const std::array<std::uint8_t, 9> head{0, 0, 1, streamId, 0, 0, 0x80, 0xC0, 10};
    const auto first = stampBytes(3, pts);
    const auto second = stampBytes(1, dts);
    std::copy(head.begin(), head.end(), bytes.begin() + 4);
    std::copy(first.begin(), first.end(), bytes.begin() + 13);
    std::copy(second.begin(), second.end(), bytes.begin() + 18);
    return bytes;
}

Bytes restamped(Bytes bytes, std::uint64_t passTicks, int passes)
{
    Restamper restamper(passTicks);
    for (int i = 0; i < passes; ++i)
        restamper.startPass();
    restamper.process(bytes.data());
    return bytes;
}

TEST(Restamper, TheFirstPassKeepsItsBytes)
{
    const Bytes pcr = packetWithPcr(256, 0, 1000, 299);
    EXPECT_EQ(restamped(pcr, 2'700'000, 0), pcr);
}

TEST(Restamper, APcrMovesOnByAPass)
{
    EXPECT_EQ(restamped(packetWithPcr(256, 0, 1000, 299), 2'700'000, 1), packetWithPcr(256, 0, 10'000, 299));
    EXPECT_EQ(restamped(packetWithPcr(256, 0, 1000, 299), 2'700'000, 3), packetWithPcr(256, 0, 28'000, 299));
}

TEST(Restamper, APcrWrapsAtItsRange)
{
    EXPECT_EQ(restamped(packetWithPcr(256, 0, StampRange - 1, 150), 600, 1), packetWithPcr(256, 0, 1, 150));
}

TEST(Restamper, APassIsTakenDownToWhole90KhzPeriods)
{
    EXPECT_EQ(restamped(packetWithPcr(256, 0, 0, 7), 599, 1), packetWithPcr(256, 0, 1, 7));
}

TEST(Restamper, PtsAndDtsMoveLikeThePcr)
{
    EXPECT_EQ(restamped(pesStart(0xE0, 5'000'000'000, 4'999'996'400), 27'000'000, 1),
        pesStart(0xE0, 5'000'090'000, 5'000'086'400));
}

TEST(Restamper, PtsAndDtsWrapAt33Bits)
{
    EXPECT_EQ(restamped(pesStart(0xC0, StampRange - 10, StampRange - 100), 15000, 1),
        pesStart(0xC0, 40, StampRange - 50));
}

TEST(Restamper, OnlyReadablePesHeadersAreTouched)
{
    const Bytes padding = pesStart(0xBE, 1, 1);
    EXPECT_EQ(restamped(padding, 2'700'000, 1), padding);
    Bytes scrambled = pesStart(0xE0, 1, 1);
    scrambled[3] |= 0x80U;
    EXPECT_EQ(restamped(scrambled, 2'700'000, 1), scrambled);
    Bytes section = packet(16, 0);
    section[1] |= 0x40U;
    EXPECT_EQ(restamped(section, 2'700'000, 1), section);
    Bytes inside = pesStart(0xE0, 1, 1);
    inside[1] &= 0xBFU; // no unit starts here: the bytes are payload that looks like a header
    EXPECT_EQ(restamped(inside, 2'700'000, 1), inside);
}

TEST(Restamper, AHeaderThatAPacketCutsIsNotReadBeyondIt)
{
    Bytes bytes = packet(256, 0);
    bytes[1] |= 0x40U;
    bytes[3] = 0x30;
    for (unsigned length = 165; length < 256; ++length) {
        bytes[4] = static_cast<std::uint8_t>(length);
        bytes[5] = 0;
        restamped(bytes, 2'700'000, 1); // AddressSanitizer watches the vector's end
    }
}

TEST(TsPacket, PcrIsReadAndWrittenInWholeRange)
{
    for (const std::uint64_t ticks :
        {std::uint64_t{0}, std::uint64_t{299}, std::uint64_t{300}, ts::PcrRange - 1}) {
        Bytes bytes = packetWithPcr(256, 0, 77, 7);
        ts::setPcr(bytes.data(), ticks);
        EXPECT_EQ(ts::pcr(bytes.data()), ticks);
        EXPECT_EQ(bytes, packetWithPcr(256, 0, ticks / 300, static_cast<unsigned>(ticks % 300)));
    }
}

} // namespace
} // namespace tessary::sender
