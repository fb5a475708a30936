// What the tests make by hand, against answers known from elsewhere.
#include "kit/crc.h"
#include "kit/packets.h"
#include "kit/sections.h"
#include "kit/t2mi.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::test;

const Bytes digits{'1', '2', '3', '4', '5', '6', '7', '8', '9'};

// The check values of the catalogued algorithms CRC-32/MPEG-2 and CRC-8/DVB-S2.
TEST(Kit, HasTheChecksumsOfTheStandards)
{
    EXPECT_EQ(crc32Mpeg2(digits), 0x0376E6E7U);
    EXPECT_EQ(crc32Mpeg2(withCrc32(digits)), 0U);
    EXPECT_EQ(crc8DvbT2(digits), 0xBC);
}

TEST(Kit, MakesTheUsualPat)
{
    EXPECT_EQ(makeSection(0x00, 1, {0x00, 0x01, 0xF0, 0x00}), fromHex("00b00d0001c100000001f0002ab104b2"));
    EXPECT_EQ(crc32Mpeg2(makeNit(0, "Desk")), 0U);
    EXPECT_NE(crc32Mpeg2(damaged(makePat({1, 2}))), 0U);
    EXPECT_EQ(makeSdt({1, 2}, 60).size(), 60U);
}

TEST(Kit, FillsPackets)
{
    EXPECT_EQ(makePacket(0x1FFF, 0), fromHex("471fff10" + std::string(2 * 184, 'f')));
    EXPECT_EQ(packetWithoutPayload(0x40, 17), fromHex("47004021b700" + std::string(2 * 182, 'f')));
    EXPECT_EQ(pcrField(0x1FFFFFFFFU, 299), fromHex("10ffffffffff2b"));
}

TEST(Kit, ASectionGoesOnInTheNextPacket)
{
    unsigned counter = 15;
    const Bytes packets = packetsOf(0x11, Bytes(184, 0x55), counter);
    ASSERT_EQ(packets.size(), 2 * packetBytes);
    EXPECT_EQ(Bytes(packets.begin(), packets.begin() + 6), fromHex("4740111f0055"));
    EXPECT_EQ(Bytes(packets.begin() + 188, packets.begin() + 188 + 6), fromHex("4700111055ff"));
    EXPECT_EQ(counter, 17U);
}

TEST(Kit, StuffsT2miPackets)
{
    for (std::size_t payload = 160; payload < 200; ++payload) {
        const Bytes packet = t2miPacket(0x20, 7, Bytes(payload, 0x11));
        EXPECT_EQ(crc32Mpeg2(packet), 0U);
        for (const Bytes& carried : tsPackets({packet}))
            EXPECT_EQ(carried.size(), packetBytes) << payload;
    }
}

} // namespace
