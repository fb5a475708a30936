#include "client/psi/t2mipacket.h"
#include "kit/t2mi.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::client;
using namespace tessary::test;

Bytes packetOf(std::uint8_t type, const Bytes& payload)
{
    return t2miPacket(type, 7, payload);
}

// A whole L1-current packet of a recorded modulator with the one PLP 102.
const Bytes recordedL1 = fromHex("10fbf0000228010000882020005e0013e200000030033003020290208f00bf0002020000"
                                 "00000001988c00008920a00810fff47ffffffe007f0100000000000001fecc00000029"
                                 "fffe0000c3c8bf97");

TEST(T2miPacketOf, TakesRecordedSignallingApart)
{
    const auto packet = decodeT2miPacket(recordedL1);
    ASSERT_TRUE(packet.has_value());
    EXPECT_TRUE(packet->crcCorrect);
    ASSERT_TRUE(packet->signalling.has_value());
    const T2Signalling& l1 = *packet->signalling;
    EXPECT_EQ(l1.preamble, "T2, SISO");
    EXPECT_EQ(l1.transmissionMode, "16k");
    EXPECT_TRUE(l1.bandwidthExtended);
    EXPECT_FALSE(l1.futureExtensionFrames);
    EXPECT_EQ(l1.guardInterval, "1/8");
    EXPECT_EQ(l1.l1Modulation, "16-QAM");
    EXPECT_EQ(l1.frequencies, std::vector<std::uint32_t>{0});
    ASSERT_EQ(l1.plps.size(), 1U);
    EXPECT_EQ(l1.plps[0].id, 102);
    EXPECT_EQ(l1.plps[0].payload, "TS");
    EXPECT_EQ(l1.plps[0].mode, "high efficiency"); // as its baseband frames are
}

TEST(T2miPacketOf, RefusesSignallingThatIsShorterThanItSays)
{
    const Bytes payload(recordedL1.begin() + 6, recordedL1.end() - 4);
    ASSERT_TRUE(decodeT2Signalling(payload).has_value());
    for (std::size_t size = 0; size < 2 + 21 + 2 + 24; ++size)
        EXPECT_FALSE(decodeT2Signalling(Bytes(payload.begin(), payload.begin() + long(size)))) << size;
    Bytes manyPlps = payload;
    manyPlps[2 + 21 + 2 + 1] = 0xFF; // NUM_PLP
    EXPECT_FALSE(decodeT2Signalling(manyPlps).has_value());
}

// The BBHEADERs of recorded frames; ETSI EN 302 755, 5.1.7.
TEST(T2miPacketOf, ReadsTheBasebandHeader)
{
    const auto frame = [](const std::string& header) {
        return decodeT2miPacket(packetOf(0x00, join({{0x01, 0x66, 0x80}, fromHex(header)})))
            .value()
            .basebandFrame.value();
    };
    const auto efficient = frame("f000000096d000033868");
    EXPECT_EQ(efficient.frameIndex, 1);
    EXPECT_EQ(efficient.plpId, 102);
    EXPECT_TRUE(efficient.interleavingFrameStart);
    ASSERT_TRUE(efficient.header.has_value());
    EXPECT_EQ(efficient.header->input, "TS");
    EXPECT_TRUE(efficient.header->singleInput);
    EXPECT_TRUE(efficient.header->constantCoding);
    EXPECT_FALSE(efficient.header->inputSynchronized);
    EXPECT_EQ(efficient.header->mode, "high efficiency");
    EXPECT_EQ(efficient.header->dataFieldBits, 38608);
    EXPECT_EQ(efficient.header->syncDistance, 0x338);
    // The same CRC-8 without the mode's bit is that of normal mode; any other is wrong.
    EXPECT_EQ(frame("f000000096d000033869").header->mode, "normal");
    EXPECT_EQ(frame("f000000096d00003386a").header->mode, "");
    EXPECT_FALSE(frame("f000000096d0000338").header.has_value());
}

TEST(T2miPacketOf, ReadsTimestamps)
{
    const auto stamp = [](const std::string& payload) {
        return decodeT2miPacket(packetOf(0x20, fromHex(payload))).value().timestamp.value();
    };
    using Kind = T2miPacket::Timestamp::Kind;
    const auto recorded = stamp("0200000000005949eaa000"); // 46,813,013 units of 1/48 µs
    EXPECT_EQ(recorded.kind, Kind::Relative);
    EXPECT_EQ(recorded.bandwidth, 6e6);
    EXPECT_EQ(textOf(recorded), "relative, 975271.104 µs");
    // 800,000,000 s since 2000, 64,000,000 units of 1/64 µs would be a second: half of it; utco 5.
    const auto absolute = stamp("04002faf08003d09000005");
    EXPECT_EQ(absolute.kind, Kind::Absolute);
    EXPECT_EQ(absolute.utcOffset, 5);
    EXPECT_EQ(absolute.unixSeconds(), 946684800 + 800000000 - 5);
    EXPECT_EQ(textOf(absolute), "2025-05-08 06:13:15 UTC + 500000.000 µs");
    EXPECT_EQ(textOf(stamp("04ffffffffffffffffffff")), "null");
    EXPECT_EQ(stamp("0f00000000010000000000").bandwidth, 0);
    EXPECT_FALSE(decodeT2miPacket(packetOf(0x20, Bytes(10))).value().timestamp.has_value());
}

TEST(T2miTypes, HaveWordsAndNames)
{
    for (const std::string& word : t2miTypeWords())
        EXPECT_TRUE(t2miTypeOf(word).has_value()) << word;
    EXPECT_EQ(t2miTypeOf("timestamp"), 0x20);
    EXPECT_FALSE(t2miTypeOf("nothing").has_value());
    EXPECT_EQ(t2miTypeName(0x10), "L1-current");
    EXPECT_EQ(t2miTypeName(0x44), "reserved type 68");
}

} // namespace
