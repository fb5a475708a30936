// What a demultiplexer does not get while it can not tell the time: PES packets without a time stamp before
// any data have left it.
#include "kit/packets.h"
#include "media/tspackets.h"
#include "media/untimedpes.h"
#include "pesstart.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::test;

constexpr unsigned pid = 0x101;

class UntimedPesOf : public ::testing::Test
{
protected:
    bool start(const Bytes& header) { return filter.take(pesStart(pid, counter++, header).data()); }
    bool timed() { return start(timedPes); }
    bool untimed() { return start(untimedPes); }
    bool more() { return filter.take(packet(pid, counter++).data()); }

    UntimedPes filter;
    unsigned counter = 0;
};

TEST_F(UntimedPesOf, AStreamThatBeginsWithoutATimeStampAreLeftOutToTheFirstWithOne)
{
    EXPECT_FALSE(untimed());
    EXPECT_FALSE(more());
    EXPECT_FALSE(untimed());
    EXPECT_TRUE(timed());
    EXPECT_TRUE(more());
}

// The demultiplexer may not have taken in yet what it got: nothing is sure before data have left it.
TEST_F(UntimedPesOf, AStreamAreLeftOutBehindOneWithATimeStampToo)
{
    EXPECT_TRUE(timed());
    EXPECT_FALSE(untimed());
    EXPECT_FALSE(more());
}

TEST_F(UntimedPesOf, AStreamComeOnceTheTimeCanBeTold)
{
    filter.dataLeft();
    EXPECT_TRUE(untimed());
    EXPECT_TRUE(more());
}

TEST_F(UntimedPesOf, AStreamAreLeftOutAgainWhenStreamsBeginAnew)
{
    timed();
    filter.dataLeft();
    filter.streamsBegan();
    EXPECT_FALSE(untimed());
    EXPECT_TRUE(timed());
}

TEST_F(UntimedPesOf, AStreamDoNotTouchOthers)
{
    EXPECT_FALSE(untimed());
    EXPECT_TRUE(filter.take(packet(pid + 1, 0).data()));
    EXPECT_TRUE(filter.take(packetsOf(0, {0x00, 0xB0, 0x0D}).data())); // a table
}

TEST_F(UntimedPesOf, AStreamAreKnownByTheirStart)
{
    EXPECT_TRUE(UntimedPes::begins(pesStart(pid, 0, untimedPes).data()));
    EXPECT_FALSE(UntimedPes::begins(pesStart(pid, 0, timedPes).data()));
    EXPECT_FALSE(UntimedPes::begins(packet(pid, 0).data()));
    EXPECT_FALSE(UntimedPes::begins(packetWithoutPayload(pid, 0).data()));
    PacketParts cut{
        adaptationAndPayload, Bytes(183 - 2), {0x00, 0x00}, true}; // the rest is in the next packet
    EXPECT_TRUE(UntimedPes::begins(makePacket(pid, 0, cut).data()));
    PacketParts padding{payloadOnly, {}, {0x00, 0x00, 0x01, 0xBE, 0x00, 0x10, 0x80, 0x80, 0x05}, true};
    EXPECT_TRUE(UntimedPes::begins(makePacket(pid, 0, padding).data())); // a stream without PES headers
}

std::vector<Bytes> packetsIn(TsPackets& packets, const Bytes& bytes, std::size_t piece)
{
    std::vector<Bytes> found;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        packets.add(bytes.data() + at, std::min(piece, bytes.size() - at));
        while (const std::uint8_t* next = packets.next())
            found.emplace_back(next, next + packetBytes);
    }
    return found;
}

std::vector<Bytes> users(unsigned first, unsigned end)
{
    std::vector<Bytes> wanted;
    for (unsigned i = first; i < end; ++i)
        wanted.push_back(userPacket(i));
    return wanted;
}

Bytes joined(unsigned first, unsigned end, std::size_t gap = 0)
{
    Bytes bytes;
    for (const Bytes& user : users(first, end)) {
        append(bytes, user);
        bytes.resize(bytes.size() + gap);
    }
    return bytes;
}

TEST(TsPacketsOf, AnyPieceAreCutWhole)
{
    for (const std::size_t piece : {1U, 7U, 188U, 1316U, 4096U, 100000U}) {
        TsPackets packets;
        EXPECT_EQ(packetsIn(packets, joined(0, 40), piece), users(0, 40)) << piece;
    }
}

TEST(TsPacketsOf, LongerOnesAreTheirFirst188Bytes)
{
    for (const std::size_t gap : {4U, 16U, 20U}) {
        TsPackets packets;
        EXPECT_EQ(packetsIn(packets, joined(0, 40, gap), 4096), users(0, 40)) << gap;
    }
}

TEST(TsPacketsOf, AStreamAreFoundAgainBehindBytesThatBelongToNone)
{
    TsPackets packets;
    Bytes bytes(100, 0x11);
    append(bytes, joined(0, 10));
    bytes.resize(bytes.size() + 33, 0x22);
    append(bytes, joined(10, 20));
    EXPECT_EQ(packetsIn(packets, bytes, 512), users(0, 20));
}

TEST(TsPacketsOf, AStreamBeginAnewAfterAReset)
{
    TsPackets packets;
    const Bytes cut(100, 0x47);
    packetsIn(packets, join({joined(0, 10), cut}), 4096);
    packets.reset();
    EXPECT_EQ(packetsIn(packets, joined(10, 20), 4096), users(10, 20));
}

} // namespace
