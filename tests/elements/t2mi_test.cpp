// The T2-MI extractor without GStreamer, against streams made after the standards' text.
#include "kit/packets.h"
#include "kit/t2mi.h"

#include "t2mi/crc.h"
#include "t2mi/extractor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace tessary;
using namespace tessary::test;

namespace {

std::vector<Bytes> somePackets(unsigned count)
{
    std::vector<Bytes> packets;
    for (unsigned i = 0; i < count; ++i)
        packets.push_back(userPacket(i));
    return packets;
}

Bytes extract(const Bytes& stream, int pid = kPid, int plp = kPlp)
{
    t2mi::Extractor extractor(pid, plp);
    Bytes out;
    extractor.push(stream.data(), stream.size(), out);
    return out;
}

// A whole T2-MI stream of these packets.
Bytes makeStream(const std::vector<Bytes>& packets, const ModeOptions& options, std::size_t dataBytes)
{
    return join(tsPackets(t2miFrames(basebandFrames(packets, options, dataBytes))));
}

bool isSuffix(const Bytes& whole, const Bytes& part)
{
    return whole.size() >= part.size() && std::equal(part.rbegin(), part.rend(), whole.rbegin());
}

} // namespace

// The check values of the catalogued algorithms CRC-8/DVB-S2 and CRC-32/MPEG-2 for the text "123456789".
TEST(Crc, HasTheKnownCheckValues)
{
    const std::string text = "123456789";
    const auto* data = reinterpret_cast<const std::uint8_t*>(text.data());
    EXPECT_EQ(t2mi::crc8(data, text.size()), 0xBC);
    EXPECT_EQ(t2mi::crc32(data, text.size()), 0x0376E6E7U);
}

TEST(Packetizer, FindsTheStepAgainAfterForeignBytes)
{
    std::vector<Bytes> got;
    t2mi::Packetizer packetizer([&got](const std::uint8_t* p) { got.emplace_back(p, p + 188); });
    const auto packets = somePackets(4);
    Bytes stream = packets[0];
    const Bytes foreign{1, 2, 0x47, 3, 4};
    stream.insert(stream.end(), foreign.begin(), foreign.end());
    for (int i = 1; i < 4; ++i)
        stream.insert(stream.end(), packets[static_cast<std::size_t>(i)].begin(),
            packets[static_cast<std::size_t>(i)].end());
    packetizer.push(stream.data(), stream.size());
    EXPECT_EQ(got, packets);
    EXPECT_EQ(packetizer.skippedBytes(), foreign.size());
}

TEST(Packetizer, StartsInTheMiddleOfAPacket)
{
    std::vector<Bytes> got;
    t2mi::Packetizer packetizer([&got](const std::uint8_t* p) { got.emplace_back(p, p + 188); });
    const Bytes stream = join(somePackets(4));
    packetizer.push(stream.data() + 50, stream.size() - 50);
    ASSERT_EQ(got.size(), 3U);
    EXPECT_EQ(got[0], userPacket(1));
}

// Mode, ISSY bytes, null packets deleted, data bytes of a frame. 187, 188 and 376 put borders on packet
// borders; 100 makes frames in which no packet starts.
class BasebandModes : public testing::TestWithParam<std::tuple<Mode, std::size_t, bool, std::size_t>>
{
};

TEST_P(BasebandModes, GiveTheSamePacketsBack)
{
    const auto [mode, issyBytes, deleteNulls, dataBytes] = GetParam();
    ModeOptions options;
    options.mode = mode;
    options.issyBytes = issyBytes;
    options.deleteNullPackets = deleteNulls;
    std::vector<Bytes> packets = somePackets(20);
    if (deleteNulls) {
        packets.insert(packets.begin() + 3, 2, nullPacket());
        packets.insert(packets.begin() + 9, 300, nullPacket()); // more than one counter holds
    }
    Bytes got = extract(makeStream(packets, options, dataBytes));
    Bytes expected = join(packets);
    EXPECT_EQ(got.size(), expected.size());
    EXPECT_EQ(got, expected);
}

INSTANTIATE_TEST_SUITE_P(All, BasebandModes,
    testing::Combine(testing::Values(Mode::Normal, Mode::NormalCrcAhead, Mode::HighEfficiency),
        testing::Values<std::size_t>(0, 2, 3), testing::Bool(),
        testing::Values<std::size_t>(100, 187, 188, 376, 800, 4826)));

TEST(BasebandDecoder, TakesTheUsualLengthWhenTheHeaderTellsNone)
{
    ModeOptions options;
    options.mode = Mode::Normal;
    options.tellLength = false;
    const auto packets = somePackets(8);
    EXPECT_EQ(extract(makeStream(packets, options, 400)), join(packets));
}

TEST(BasebandDecoder, PutsDeletedNullPacketsAheadOfTheNextPacket)
{
    ModeOptions options;
    options.deleteNullPackets = true;
    const std::vector<Bytes> packets{userPacket(0), nullPacket(), nullPacket(), userPacket(1)};
    EXPECT_EQ(extract(makeStream(packets, options, 500)), join(packets));
}

TEST(BasebandDecoder, MarksAPacketWithAWrongCrc8)
{
    ModeOptions options;
    options.mode = Mode::Normal;
    const auto packets = somePackets(6);
    auto frames = basebandFrames(packets, options, 6 * 188);
    frames[0][10 + 3 * 188 + 40] ^= 0xFF; // in the fourth packet
    const Bytes got = extract(join(tsPackets(t2miFrames(frames))));
    ASSERT_EQ(got.size(), 6U * 188);
    EXPECT_EQ(got[3 * 188 + 1] & 0x80, 0x80);
    EXPECT_EQ(got[2 * 188 + 1] & 0x80, 0);
    EXPECT_EQ(got[4 * 188 + 1] & 0x80, 0);
}

TEST(BasebandDecoder, LeavesAFrameWithAWrongHeaderOut)
{
    const auto packets = somePackets(30);
    auto frames = basebandFrames(packets, ModeOptions(), 187 * 10);
    frames[1][4] ^= 0x01;
    const Bytes got = extract(join(tsPackets(t2miFrames(frames))));
    Bytes expected = join({packets.begin(), packets.begin() + 10});
    const Bytes rest = join({packets.begin() + 20, packets.end()});
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(got, expected);
}

TEST(BasebandDecoder, RefusesLengthsThatDoNotFit)
{
    const auto good = basebandFrames(somePackets(4), ModeOptions(), 400)[0];
    struct Case
    {
        std::size_t at;
        std::uint8_t high;
        std::uint8_t low;
    };
    // DFL longer than the frame, DFL no whole bytes, SYNCD behind the data field, SYNCD no whole bytes
    for (const Case& wrong :
        {Case{4, 0xFF, 0xF8}, Case{4, 0x00, 0x81}, Case{7, 0xFF, 0xF0}, Case{7, 0x00, 0x09}}) {
        Bytes frame = good;
        frame[wrong.at] = wrong.high;
        frame[wrong.at + 1] = wrong.low;
        frame[9] = static_cast<std::uint8_t>(t2mi::crc8(frame.data(), 9) ^ 1);
        Bytes payload{0, kPlp, 0};
        payload.insert(payload.end(), frame.begin(), frame.end());
        t2mi::BasebandDecoder decoder(kPlp);
        Bytes out;
        decoder.push(payload.data(), payload.size(), out);
        EXPECT_TRUE(out.empty());
        EXPECT_EQ(decoder.counters().headerErrors, 1U) << "field at " << wrong.at;
    }
}

TEST(BasebandDecoder, LeavesGenericStreamsOut)
{
    Bytes frame = basebandFrames(somePackets(4), ModeOptions(), 400)[0];
    frame[0] = 0x30; // generic packetised
    frame[9] = static_cast<std::uint8_t>(t2mi::crc8(frame.data(), 9) ^ 1);
    EXPECT_TRUE(extract(join(tsPackets(t2miFrames({frame})))).empty());
}

TEST(BasebandDecoder, DropsAPacketWhoseRestDoesNotFit)
{
    const auto packets = somePackets(9);
    auto frames = basebandFrames(packets, ModeOptions(), 400);
    frames.erase(frames.begin() + 1); // nothing else tells of the loss: the counts are made after it
    const Bytes got = extract(join(tsPackets(t2miFrames(frames))));
    const Bytes first = join({packets[0], packets[1]});
    ASSERT_GE(got.size(), first.size());
    EXPECT_TRUE(std::equal(first.begin(), first.end(), got.begin()));
    for (std::size_t at = 0; at < got.size(); at += 188) {
        const Bytes packet(got.begin() + static_cast<std::ptrdiff_t>(at),
            got.begin() + static_cast<std::ptrdiff_t>(at + 188));
        EXPECT_NE(std::find(packets.begin(), packets.end(), packet), packets.end())
            << "a packet of mixed parts";
    }
    EXPECT_TRUE(isSuffix(got, packets.back()));
}

TEST(Extractor, TakesTheChosenPlpOnly)
{
    const auto mine = somePackets(12);
    std::vector<Bytes> others;
    for (unsigned i = 100; i < 112; ++i)
        others.push_back(userPacket(i));
    const auto a = t2miFrames(basebandFrames(mine, ModeOptions(), 600));
    const auto b = t2miFrames(basebandFrames(others, ModeOptions(), 600), kPlp + 1);
    ASSERT_EQ(a.size(), b.size());
    std::vector<Bytes> mixed;
    unsigned count = 250; // runs over its end
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (const Bytes& packet : {b[i], a[i]}) {
            const Bytes payload(packet.begin() + 6, packet.end() - 4);
            mixed.push_back(t2miPacket(0, count++, payload));
        }
    }
    const Bytes stream = join(tsPackets(mixed));
    EXPECT_EQ(extract(stream), join(mine));
    EXPECT_EQ(extract(stream, kPid, kPlp + 1), join(others));
    EXPECT_TRUE(extract(stream, kPid, kPlp + 2).empty());
    EXPECT_TRUE(extract(stream, kPid + 1, kPlp).empty());
    EXPECT_TRUE(extract(stream, -1, -1).empty());
}

TEST(Extractor, GivesTheSameWhereverTheInputIsCut)
{
    const auto packets = somePackets(10);
    const Bytes stream = makeStream(packets, ModeOptions(), 333);
    const Bytes expected = join(packets);
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        t2mi::Extractor extractor(kPid, kPlp);
        Bytes out;
        extractor.push(stream.data(), cut, out);
        extractor.push(stream.data() + cut, stream.size() - cut, out);
        ASSERT_EQ(out, expected) << "cut at " << cut;
    }
    t2mi::Extractor byByte(kPid, kPlp);
    Bytes out;
    for (const std::uint8_t& byte : stream)
        byByte.push(&byte, 1, out);
    EXPECT_EQ(out, expected);
}

// T2-MI packets of every length up to two transport stream packets: each border falls on each place once.
TEST(T2MiDemux, CollectsPacketsAcrossEveryBorder)
{
    std::vector<Bytes> sent;
    for (unsigned size = 0; size < 400; ++size)
        sent.push_back(t2miPacket(0x20, size, Bytes(size, static_cast<std::uint8_t>(size))));
    std::vector<Bytes> got;
    t2mi::T2MiDemux demux(
        kPid, [&got](const std::uint8_t* p, std::size_t n) { got.emplace_back(p, p + n); }, [] {});
    for (const Bytes& packet : tsPackets(sent))
        demux.push(packet.data());
    EXPECT_EQ(got, sent);
    EXPECT_EQ(demux.counters().framingErrors, 0U);
}

TEST(T2MiDemux, RoundsAPayloadOfOddBitsUp)
{
    const Bytes sent = t2miPacket(0x10, 0, Bytes(5, 0xA0), 0, 35);
    std::vector<Bytes> got;
    t2mi::T2MiDemux demux(
        kPid, [&got](const std::uint8_t* p, std::size_t n) { got.emplace_back(p, p + n); }, [] {});
    for (const Bytes& packet : tsPackets({sent}))
        demux.push(packet.data());
    EXPECT_EQ(got, std::vector<Bytes>{sent});
}

TEST(T2MiDemux, ThrowsAPacketWithAWrongCrcAway)
{
    const auto packets = somePackets(30);
    auto frames = t2miFrames(basebandFrames(packets, ModeOptions(), 187 * 10));
    frames[1][500] ^= 0x10;
    t2mi::Extractor extractor(kPid, kPlp);
    const Bytes stream = join(tsPackets(frames));
    Bytes out;
    extractor.push(stream.data(), stream.size(), out);
    EXPECT_EQ(extractor.t2miCounters().crcErrors, 1U);
    EXPECT_EQ(out.size(), 20U * 188);
    EXPECT_EQ(extractor.lastPacket(), frames[2]);
}

TEST(T2MiDemux, IgnoresARepeatedPacket)
{
    const auto packets = somePackets(10);
    auto ts = tsPackets(t2miFrames(basebandFrames(packets, ModeOptions(), 600)));
    for (std::size_t i = ts.size(); i-- > 0;)
        ts.insert(ts.begin() + static_cast<std::ptrdiff_t>(i), ts[i]);
    EXPECT_EQ(extract(join(ts)), join(packets));
}

TEST(T2MiDemux, IgnoresPacketsWithoutPayload)
{
    const auto packets = somePackets(10);
    auto ts = tsPackets(t2miFrames(basebandFrames(packets, ModeOptions(), 600)));
    ts.insert(ts.begin() + 2, packetWithoutPayload(kPid, 0));
    EXPECT_EQ(extract(join(ts)), join(packets));
}

// Each packet of the transport stream is lost once: whole packets only come out, and the end always does.
TEST(T2MiDemux, ResumesAfterTheLossOfAnyPacket)
{
    const auto packets = somePackets(30);
    const auto ts = tsPackets(t2miFrames(basebandFrames(packets, ModeOptions(), 600)));
    for (std::size_t lost = 0; lost + 8 < ts.size(); ++lost) {
        auto damaged = ts;
        damaged.erase(damaged.begin() + static_cast<std::ptrdiff_t>(lost));
        const Bytes got = extract(join(damaged));
        ASSERT_EQ(got.size() % 188, 0U);
        EXPECT_LT(got.size(), packets.size() * 188);
        EXPECT_TRUE(isSuffix(got, join({packets.end() - 3, packets.end()}))) << "lost " << lost;
        for (std::size_t at = 0; at < got.size(); at += 188) {
            const Bytes packet(got.begin() + static_cast<std::ptrdiff_t>(at),
                got.begin() + static_cast<std::ptrdiff_t>(at + 188));
            ASSERT_NE(std::find(packets.begin(), packets.end(), packet), packets.end()) << "lost " << lost;
        }
    }
}

TEST(T2MiDemux, CountsADamagedPacketAsLost)
{
    const auto packets = somePackets(30);
    auto ts = tsPackets(t2miFrames(basebandFrames(packets, ModeOptions(), 600)));
    ts[4][1] |= 0x80; // transport_error_indicator
    const Bytes got = extract(join(ts));
    EXPECT_LT(got.size(), packets.size() * 188);
    EXPECT_TRUE(isSuffix(got, packets.back()));
}

TEST(T2MiDemux, AJumpOfThePacketCountIsALoss)
{
    int losses = 0;
    t2mi::T2MiDemux demux(
        kPid, [](const std::uint8_t*, std::size_t) {}, [&losses] { ++losses; });
    const std::vector<Bytes> sent{t2miPacket(0x20, 255, {1}), t2miPacket(0x20, 0, {1}),
        t2miPacket(0x20, 2, {1}),
        t2miPacket(0x20, 9, {1}, 3)}; // the last belongs to another stream of the same PID
    for (const Bytes& packet : tsPackets(sent))
        demux.push(packet.data());
    EXPECT_EQ(losses, 1);
    EXPECT_EQ(demux.counters().countErrors, 1U);
}

TEST(Extractor, LastPacketIsTheNewestOfAnyType)
{
    t2mi::Extractor extractor(kPid, kPlp);
    EXPECT_TRUE(extractor.lastPacket().empty());
    const auto frames = t2miFrames(basebandFrames(somePackets(3), ModeOptions(), 600));
    const Bytes timestamp = t2miPacket(0x20, 1, Bytes(11, 0x55));
    const Bytes stream = join(tsPackets({frames[0], timestamp}));
    Bytes out;
    extractor.push(stream.data(), stream.size(), out);
    EXPECT_EQ(extractor.lastPacket(), timestamp);
}
