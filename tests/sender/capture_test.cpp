// Captures: their streams are found, and their datagrams come as they were and when they were.
#include <cstdio>
#include <gtest/gtest.h>
#include <pcap/dlt.h>
#include <unistd.h>

#include "capture_datagrams.h"
#include "capture_flow.h"
#include "capture_reader.h"
#include "captures.h"
#include "options.h"
#include "ts_file.h"

namespace tessary::sender {
namespace {

using namespace tessary::test;

constexpr std::int64_t Ms = 1'000'000;
constexpr std::int64_t Noon = std::int64_t{1'700'000'000} * 1'000'000'000;

/// `count` packets, the first with `fill`.
Bytes packets(std::size_t count, std::uint8_t fill)
{
    Bytes all;
    for (std::size_t i = 0; i < count; ++i) {
        const Bytes one = packet(256, static_cast<unsigned>(i), fill);
        all.insert(all.end(), one.begin(), one.end());
    }
    return all;
}

Captured at(std::int64_t ms, std::uint8_t fill, std::uint16_t port = 5000)
{
    Captured datagram;
    datagram.timeNs = Noon + ms * Ms;
    datagram.port = port;
    datagram.payload = packets(7, fill);
    return datagram;
}

class Capture : public ::testing::Test
{
protected:
    void TearDown() override { std::remove(file.c_str()); }

    CaptureFlow flow(const std::string& name = {}) { return chooseFlow(file, findFlows(file), name); }

    /// {time in ns, payload} of all.
    std::vector<std::pair<std::int64_t, Bytes>> all(DatagramSource& source)
    {
        std::vector<std::pair<std::int64_t, Bytes>> result;
        for (;;) {
            const std::int64_t time = source.nextTimeNs();
            const auto datagram = source.take();
            if (!datagram)
                return result;
            result.emplace_back(time, Bytes(datagram->data, datagram->data + datagram->size));
        }
    }

    template <typename Error> std::string whatFails(const std::string& name = {})
    {
        try {
            flow(name);
        } catch (const Error& error) {
            return error.what();
        }
        return {};
    }

    std::string file;
};

TEST_F(Capture, ComesAsItWasAndWhenItWas)
{
    const std::vector<Captured> three{at(0, 1), at(30, 2), at(31, 3)};
    for (const bool next : {false, true}) {
        file = next ? writePcapng("three.pcapng", three) : writePcap("three.pcap", three);
        ASSERT_TRUE(CaptureReader::isCapture(file));
        CaptureDatagrams source(file, flow(), 1, false);
        const auto sent = all(source);
        ASSERT_EQ(sent.size(), 3U);
        EXPECT_EQ(sent[0], std::make_pair(std::int64_t{0}, three[0].payload));
        EXPECT_EQ(sent[1], std::make_pair(30 * Ms, three[1].payload));
        EXPECT_EQ(sent[2], std::make_pair(31 * Ms, three[2].payload));
        std::remove(file.c_str());
    }
}

TEST_F(Capture, IsRepeatedOneMeanDistanceAfterItsEnd)
{
    file = writePcap("loop.pcap", {at(0, 1), at(10, 2), at(40, 3)});
    CaptureDatagrams source(file, flow(), 2, false);
    const auto sent = all(source);
    ASSERT_EQ(sent.size(), 6U);
    EXPECT_EQ(sent[3].first, 60 * Ms);
    EXPECT_EQ(sent[5].first, 100 * Ms);
    EXPECT_EQ(sent[3].second, sent[0].second);
    EXPECT_EQ(source.passesBegun(), 2U);
    EXPECT_DOUBLE_EQ(source.tsBitRate(), 3 * 1316 * 8 / 0.060);
}

TEST_F(Capture, WhoseClockWasSetBackStaysInOrder)
{
    file = writePcap("back.pcap", {at(0, 1), at(20, 2), at(5, 3), at(30, 4)});
    CaptureDatagrams source(file, flow(), 1, false);
    const auto sent = all(source);
    ASSERT_EQ(sent.size(), 4U);
    EXPECT_EQ(sent[2].first, 20 * Ms);
    EXPECT_EQ(sent[3].first, 30 * Ms);
}

TEST_F(Capture, OfSeveralStreamsAsksWhich)
{
    Captured announcement = at(3, 0);
    announcement.port = 9875;
    announcement.payload = {'v', '=', '0'};
    file = writePcap("two.pcap", {at(0, 1), at(1, 2, 6000), announcement, at(4, 3), at(5, 4, 6000)});
    const std::string which = whatFails<UsageError>();
    EXPECT_NE(which.find("\n  --flow 239.1.2.3:5000 (udp, 2 datagrams, 2.632 Mbit/s)"), std::string::npos)
        << which;
    EXPECT_NE(which.find("\n  --flow 239.1.2.3:6000 (udp, 2 datagrams"), std::string::npos) << which;
    EXPECT_EQ(which.find("9875"), std::string::npos) << which;
    EXPECT_NE(whatFails<UsageError>("239.1.2.3:7000").find("there is\n  --flow"), std::string::npos);
    CaptureDatagrams source(file, flow("239.1.2.3:6000"), 1, false);
    const auto sent = all(source);
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].first, 0);
    EXPECT_EQ(sent[1].first, 4 * Ms);
    EXPECT_EQ(sent[1].second, packets(7, 4));
}

TEST_F(Capture, OfRtpKeepsItsHeaders)
{
    std::vector<Captured> two{at(0, 1), at(10, 2)};
    for (Captured& datagram : two)
        datagram.payload = asRtp(datagram.payload);
    file = writePcap("rtp.pcap", two);
    EXPECT_TRUE(flow().rtp);
    CaptureDatagrams source(file, flow(), 1, false);
    const auto datagram = source.take();
    ASSERT_TRUE(datagram);
    EXPECT_EQ(Bytes(datagram->data, datagram->data + datagram->size), two[0].payload);
    EXPECT_EQ(datagram->packets, 7U);
    EXPECT_EQ(datagram->tsBytes, 1316U);
}

TEST_F(Capture, HasItsTagsOnRequest)
{
    std::vector<Captured> two{at(0, 1), at(10, 2)};
    for (Captured& datagram : two)
        datagram.tags = {0x88, 0xA8, 0x00, 0x05, 0x81, 0x00, 0x60, 0x64};
    file = writePcap("tags.pcap", two);
    CaptureDatagrams without(file, flow(), 1, false);
    EXPECT_EQ(without.take()->vlanTags, nullptr);
    CaptureDatagrams with(file, flow(), 1, true);
    const auto datagram = with.take();
    ASSERT_TRUE(datagram);
    EXPECT_EQ(Bytes(datagram->vlanTags, datagram->vlanTags + datagram->vlanBytes), two[0].tags);
    EXPECT_EQ(with.headerBytes(), 8U);
}

TEST_F(Capture, WithoutTagsHasNoneToKeep)
{
    file = writePcap("untagged.pcap", {at(0, 1), at(10, 2)});
    EXPECT_THROW(CaptureDatagrams(file, flow(), 1, true), StreamError);
}

TEST_F(Capture, ThatIsCutIsNotSent)
{
    file = writePcap("cut.pcap", {at(0, 1), at(10, 2)}, 800);
    EXPECT_NE(whatFails<StreamError>().find("2 of 2 datagrams were not captured whole; "), std::string::npos);
}

TEST_F(Capture, OfFragmentsSaysSo)
{
    Captured first = at(0, 1);
    first.fragment = 0x2000;
    Captured second = at(0, 2);
    second.fragment = 0x00B9;
    file = writePcap("fragments.pcap", {first, second});
    EXPECT_NE(whatFails<StreamError>().find("fragments"), std::string::npos);
}

TEST_F(Capture, WithoutStreamSaysSo)
{
    Captured text = at(0, 1);
    text.payload = {'h', 'i'};
    file = writePcap("text.pcap", {text});
    EXPECT_NE(whatFails<StreamError>().find("no UDP datagram"), std::string::npos);
}

TEST_F(Capture, OfOneMomentIsNoStream)
{
    file = writePcap("one.pcap", {at(0, 1)});
    EXPECT_NE(whatFails<StreamError>().find("one moment"), std::string::npos);
}

TEST_F(Capture, FromTheCookedAndTheRawLinkLayerIsRead)
{
    const Bytes frame = frameOf(at(0, 1));
    const Bytes ip(frame.begin() + 14, frame.end());
    Bytes cooked(16);
    cooked[14] = 0x08;
    Bytes cooked2(20);
    cooked2[0] = 0x08;
    for (const auto& [layer, header] : std::vector<std::pair<int, Bytes>>{
             {DLT_LINUX_SLL, cooked}, {DLT_LINUX_SLL2, cooked2}, {DLT_RAW, {}}}) {
        Bytes whole = header;
        whole.insert(whole.end(), ip.begin(), ip.end());
        file = writeOtherPcap("layer.pcap", layer, whole);
        CaptureReader reader(file);
        const auto datagram = reader.next();
        ASSERT_TRUE(datagram) << layer;
        EXPECT_EQ(Bytes(datagram->data, datagram->data + datagram->size), packets(7, 1));
        EXPECT_FALSE(reader.next());
        std::remove(file.c_str());
    }
}

TEST_F(Capture, OfAnotherLinkLayerIsRefused)
{
    file = writeOtherPcap("other.pcap", DLT_IEEE802_11, {1, 2, 3});
    EXPECT_THROW(CaptureReader reader(file), StreamError);
}

/// Frames that end in the middle of a header, and headers that promise more than there is.
TEST_F(Capture, DamagedFramesArePassedOver)
{
    const Bytes whole = frameOf(at(0, 1));
    for (std::size_t size = 0; size < 14 + 24 + 8; ++size) {
        file = writeOtherPcap("short.pcap", DLT_EN10MB,
            Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        CaptureReader reader(file);
        EXPECT_FALSE(reader.next()) << size;
        std::remove(file.c_str());
    }
    Bytes tagsOnly(whole.begin(), whole.begin() + 12);
    for (int i = 0; i < 5; ++i)
        tagsOnly.insert(tagsOnly.end(), {0x81, 0x00, 0, 1});
    file = writeOtherPcap("tags.pcap", DLT_EN10MB, tagsOnly);
    EXPECT_FALSE(CaptureReader(file).next());
    std::remove(file.c_str());
    Bytes longHeader = whole;
    longHeader[14] = 0x4F;
    longHeader.resize(14 + 30);
    file = writeOtherPcap("long.pcap", DLT_EN10MB, longHeader);
    EXPECT_FALSE(CaptureReader(file).next());
}

TEST_F(Capture, WhoseFileEndsTooEarlyIsSaidToBeDamaged)
{
    file = writePcap("end.pcap", {at(0, 1), at(10, 2)});
    std::FILE* const open = std::fopen(file.c_str(), "r+");
    ASSERT_EQ(ftruncate(fileno(open), 2000), 0);
    std::fclose(open);
    EXPECT_NE(whatFails<StreamError>().find("; cut the file off"), std::string::npos);
}

TEST(IsCapture, IsNoStreamAndNoMissingFile)
{
    const std::string stream = writeFile("plain.ts", packets(3, 1));
    EXPECT_FALSE(CaptureReader::isCapture(stream));
    EXPECT_FALSE(CaptureReader::isCapture("/no/such/file.pcap"));
    std::remove(stream.c_str());
}

TEST(RtpBytes, AreThoseBeforeThePackets)
{
    const Bytes stream = packets(2, 1);
    const Bytes rtp = asRtp(stream);
    EXPECT_EQ(rtpBytesOf(stream.data(), stream.size()), 0U);
    EXPECT_EQ(rtpBytesOf(rtp.data(), rtp.size()), 24U);
    for (std::size_t size = 0; size < 24 + 188; ++size)
        EXPECT_EQ(rtpBytesOf(rtp.data(), size), std::nullopt) << size;
}

} // namespace
} // namespace tessary::sender
