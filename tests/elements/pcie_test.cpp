#include "kit/packets.h"
#include "kit/t2mi.h"
#include "platform.h"

#include "streampace.h"

#include <gst/base/gstbasesink.h>
#include <gst/base/gstbasesrc.h>
#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

using tessary::test::Bytes;
using tessary::test::bytesOfFile;
using tessary::test::join;
using tessary::test::userPacket;
using tessary::test::writeBytes;

namespace {

std::string place(const std::string& name)
{
    return scratchFolder() + "/" + name;
}

Bytes somePackets(unsigned count, unsigned first = 0)
{
    std::vector<Bytes> packets;
    for (unsigned i = 0; i < count; ++i)
        packets.push_back(userPacket(first + i));
    return join(packets);
}

std::string source(const std::string& path, const std::string& properties)
{
    return "pciesrc name=in location=" + path + " " + properties + " ! fakesink name=out sync=false";
}

Bytes pcrPacket(std::uint64_t pcr27MHz, int pid = 0x100)
{
    const Bytes pcr = tessary::test::pcrField(pcr27MHz / 300, static_cast<unsigned>(pcr27MHz % 300));
    return tessary::test::makePacket(static_cast<unsigned>(pid), 0, {tessary::test::adaptationOnly, pcr});
}

// A clock reference every tenth packet, `step` units of 27 MHz apart, from `start` on.
Bytes clockedStream(std::uint64_t start, std::uint64_t step, unsigned references)
{
    constexpr std::uint64_t modulus = (std::uint64_t{1} << 33) * 300;
    std::vector<Bytes> packets;
    for (unsigned i = 0; i < references; ++i) {
        packets.push_back(pcrPacket((start + i * step) % modulus));
        for (int k = 0; k < 9; ++k)
            packets.push_back(userPacket(i));
    }
    return join(packets);
}

} // namespace

// Ten packets of 1,504 bits every 1 ms: 15.04 Mbit/s.
TEST(StreamPace, ReadsTheBitRateFromTheClockReferences)
{
    const Bytes stream = clockedStream(5000, 27000, 30);
    EXPECT_EQ(bitRateFromPcr(stream.data(), stream.size()), 15040000U);
    EXPECT_EQ(bitRateFromPcr(stream.data() + 77, stream.size() - 77), 15040000U) << "cut in a packet";
}

TEST(StreamPace, FollowsTheClockReferenceOverItsEnd)
{
    const std::uint64_t end = (std::uint64_t{1} << 33) * 300;
    const Bytes stream = clockedStream(end - 100000, 27000, 30);
    EXPECT_EQ(bitRateFromPcr(stream.data(), stream.size()), 15040000U);
}

TEST(StreamPace, StopsReadingAtAJump)
{
    Bytes stream = clockedStream(5000, 27000, 30);
    const Bytes other = clockedStream(900000000, 54000, 100);
    stream.insert(stream.end(), other.begin(), other.end());
    EXPECT_EQ(bitRateFromPcr(stream.data(), stream.size()), 15040000U);
}

TEST(StreamPace, HasNoBitRateWithoutTwoReferences)
{
    const Bytes one = clockedStream(5000, 27000, 1);
    EXPECT_EQ(bitRateFromPcr(one.data(), one.size()), 0U);
    const Bytes none = somePackets(50);
    EXPECT_EQ(bitRateFromPcr(none.data(), none.size()), 0U);
    EXPECT_EQ(bitRateFromPcr(none.data(), 0), 0U);
}

TEST(StreamPace, TellsWhenBytesAreDue)
{
    StreamPace pace;
    pace.setBitRate(8000000); // a byte a microsecond
    EXPECT_EQ(pace.due(1000, 5000), 6000);
    EXPECT_EQ(pace.due(1000, 5500), 7000);
    EXPECT_EQ(pace.due(1000, 900000), 8000) << "late by more than is caught up";
    EXPECT_EQ(pace.due(1000, 900000), 901000);
    pace.setBitRate(0);
    EXPECT_EQ(pace.due(1000, 42), 42);
}

TEST(PcieSrc, IsALiveSourceWithThePlatformsProperties)
{
    Pipeline pipeline(source(place("absent.ts"), "blocksize=18800 do-timestamp=false"));
    EXPECT_TRUE(gst_base_src_is_live(GST_BASE_SRC(pipeline.element("in"))));
    guint blockSize = 0;
    g_object_get(pipeline.element("in"), "blocksize", &blockSize, nullptr);
    EXPECT_EQ(blockSize, 18800U);
}

TEST(PcieSrc, PlaysAFileUnchangedInBlocks)
{
    const Bytes stream = somePackets(250);
    writeBytes(place("in.ts"), stream);
    Pipeline pipeline(source(place("in.ts"), "loop=false blocksize=18800 bitrate=20000000"));
    const Collector collector(pipeline);
    EXPECT_EQ(pipeline.playToEnd(), "");
    EXPECT_EQ(collector.bytes(), stream);
    const auto blocks = collector.blocks();
    ASSERT_EQ(blocks.size(), 3U);
    EXPECT_EQ(blocks[0].bytes.size(), 18800U);
    EXPECT_EQ(blocks[2].bytes.size(), 50U * 188);
    EXPECT_TRUE(GST_CLOCK_TIME_IS_VALID(blocks[0].pts)) << "each block has its time of arrival";
    EXPECT_LT(blocks[0].pts, blocks[2].pts);
}

// 25,000 bytes at 400 kbit/s last half a second.
TEST(PcieSrc, KeepsTheBitRate)
{
    writeBytes(place("in.ts"), Bytes(25000, 0x47));
    Pipeline pipeline(source(place("in.ts"), "loop=false blocksize=1000 bitrate=400000"));
    const Collector collector(pipeline);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(pipeline.playToEnd(), "");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(490));
    EXPECT_EQ(collector.blocks().size(), 25U);
}

// Three rounds of 100 ms, as its clock references tell.
TEST(PcieSrc, KeepsThePaceOfTheClockReferences)
{
    const Bytes stream = clockedStream(5000, 270000, 10);
    writeBytes(place("in.ts"), stream);
    Pipeline pipeline(source(place("in.ts"), "blocksize=1880"));
    const Collector collector(pipeline);
    const auto begin = std::chrono::steady_clock::now();
    pipeline.setState(GST_STATE_PLAYING);
    ASSERT_TRUE(collector.waitForBytes(3 * stream.size()));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(290));
}

TEST(PcieSrc, StartsAgainAtTheEndAndMarksIt)
{
    const Bytes stream = somePackets(20);
    writeBytes(place("in.ts"), stream);
    Pipeline pipeline(source(place("in.ts"), "blocksize=1880 bitrate=50000000"));
    const Collector collector(pipeline);
    pipeline.setState(GST_STATE_PLAYING);
    ASSERT_TRUE(collector.waitForBytes(stream.size() * 2));
    pipeline.setState(GST_STATE_NULL);
    const Bytes got = collector.bytes();
    EXPECT_TRUE(
        std::equal(stream.begin(), stream.end(), got.begin() + static_cast<std::ptrdiff_t>(stream.size())));
    const auto blocks = collector.blocks();
    EXPECT_TRUE(blocks[0].discont);
    EXPECT_FALSE(blocks[1].discont);
    EXPECT_TRUE(blocks[2].discont);
}

TEST(PcieSrc, WaitsForAnAbsentFileAndStopsAtOnce)
{
    Pipeline pipeline(source(place("absent.ts"), "loop=false bitrate=50000000"));
    const Collector collector(pipeline);
    pipeline.setState(GST_STATE_PLAYING);
    EXPECT_FALSE(collector.waitForBytes(1, std::chrono::milliseconds(300)));
    const auto begin = std::chrono::steady_clock::now();
    pipeline.setState(GST_STATE_NULL);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, patience);
    EXPECT_TRUE(collector.blocks().empty());
}

TEST(PcieSrc, PlaysAFileThatAppearsLater)
{
    const Bytes stream = somePackets(10);
    Pipeline pipeline(source(place("later.ts"), "loop=false bitrate=50000000"));
    const Collector collector(pipeline);
    pipeline.setState(GST_STATE_PLAYING);
    EXPECT_FALSE(collector.waitForBytes(1, std::chrono::milliseconds(200)));
    writeBytes(place("part.ts"), stream);
    std::rename(place("part.ts").c_str(), place("later.ts").c_str());
    EXPECT_TRUE(collector.waitForBytes(stream.size()));
    EXPECT_EQ(collector.bytes(), stream);
}

TEST(PcieSrc, FollowsAFileThatIsReplacedAndOneThatIsTakenAway)
{
    writeBytes(place("in.ts"), somePackets(20));
    Pipeline pipeline(source(place("in.ts"), "blocksize=188 bitrate=1000000"));
    const Collector collector(pipeline);
    pipeline.setState(GST_STATE_PLAYING);
    ASSERT_TRUE(collector.waitForBytes(188));
    const Bytes other = userPacket(1000);
    writeBytes(place("part.ts"), other);
    std::rename(place("part.ts").c_str(), place("in.ts").c_str());
    EXPECT_TRUE(waitFor([&] {
        const auto blocks = collector.blocks();
        return blocks.back().bytes == other;
    }));
    std::remove(place("in.ts").c_str());
    std::size_t before = 0; // nothing comes any more: the count stands still
    EXPECT_TRUE(waitFor([&] {
        const std::size_t last = before;
        before = collector.blocks().size();
        ::usleep(100000);
        return collector.blocks().size() == before && last == before;
    }));
    pipeline.setState(GST_STATE_NULL);
}

TEST(PcieSrc, DeliversAFifosBytesAsTheyComeFromOneWriterAfterTheOther)
{
    const std::string fifo = place("fifo.ts");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    Pipeline pipeline(source(fifo, "blocksize=18800"));
    const Collector collector(pipeline);
    pipeline.setState(GST_STATE_PLAYING);
    Bytes sent;
    for (unsigned writer = 0; writer < 3; ++writer) {
        const Bytes piece = somePackets(7, writer * 7);
        int fd = -1; // without a reader a FIFO can not be opened this way
        ASSERT_TRUE(waitFor([&] { return (fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK)) >= 0; }));
        EXPECT_EQ(::write(fd, piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
        ::close(fd);
        sent.insert(sent.end(), piece.begin(), piece.end());
        ASSERT_TRUE(collector.waitForBytes(sent.size()));
    }
    EXPECT_EQ(collector.bytes(), sent);
    const auto begin = std::chrono::steady_clock::now();
    pipeline.setState(GST_STATE_NULL);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, patience);
}

TEST(PcieSrc, PlaysAgainAfterItWasStopped)
{
    const Bytes stream = somePackets(10);
    writeBytes(place("in.ts"), stream);
    Pipeline pipeline(source(place("in.ts"), "loop=false bitrate=50000000"));
    for (int round = 0; round < 2; ++round) {
        const Collector collector(pipeline);
        EXPECT_EQ(pipeline.playToEnd(), "");
        EXPECT_EQ(collector.bytes(), stream);
    }
}

TEST(PcieSink, HasEachBufferInTheFileAtOnce)
{
    const std::string path = place("out.ts");
    writeBytes(path, Bytes(100000, 1)); // of an earlier run: emptied at the start
    GstHarness* harness = gst_harness_new_parse(("pciesink location=" + path).c_str());
    gst_harness_set_src_caps_str(harness, "video/mpegts");
    Bytes sent;
    for (unsigned i = 0; i < 3; ++i) {
        const Bytes packet = userPacket(i);
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, packet.size(), nullptr);
        gst_buffer_fill(buffer, 0, packet.data(), packet.size());
        ASSERT_EQ(gst_harness_push(harness, buffer), GST_FLOW_OK);
        sent.insert(sent.end(), packet.begin(), packet.end());
        EXPECT_EQ(bytesOfFile(path), sent);
    }
    gst_harness_teardown(harness);
}

TEST(PcieSink, TellsWhyAPlaceCanNotBeWritten)
{
    Pipeline pipeline("videotestsrc num-buffers=1 ! pciesink location=/nonexistent/out.ts");
    const std::string error = pipeline.playToEnd();
    EXPECT_NE(error.find("/nonexistent/out.ts"), std::string::npos) << error;
    EXPECT_NE(error.find("No such file"), std::string::npos) << error;
}

TEST(PcieSink, DoesNotWaitForTheClock)
{
    Pipeline pipeline("fakesrc num-buffers=1 ! pciesink name=sink location=" + place("out.ts"));
    EXPECT_FALSE(gst_base_sink_get_sync(GST_BASE_SINK(pipeline.element("sink"))));
}
