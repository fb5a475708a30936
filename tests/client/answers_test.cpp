#include "client/answererror.h"
#include "client/ebs.h"
#include "client/instrumentsettings.h"
#include "client/measurement.h"
#include "client/psi/t2mipacket.h"
#include "client/streamtables.h"
#include "kit/crc.h"
#include "kit/sections.h"

#include <gtest/gtest.h>
#include <limits>

using namespace tessary::client;
using namespace tessary::test;

namespace {

std::string values(std::initializer_list<std::int32_t> list)
{
    std::string bytes;
    for (const std::int32_t value : list) {
        for (unsigned shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<char>(static_cast<std::uint32_t>(value) >> shift));
    }
    return bytes;
}

TEST(Measurement, TheTransportStreamsRateIsThatOfItsPacketsOf188Bytes)
{
    const auto rateOf = [](int frame, int size, int count) {
        Measurement m;
        m.bitRate = frame * 8 * 100; // 100 datagrams a second
        m.packetSize = size;
        m.packetsPerDatagram = count;
        return m;
    };
    EXPECT_EQ(transportRate(rateOf(1358, 188, 7), false), 1316 * 8 * 100);
    EXPECT_EQ(transportRate(rateOf(1370, 188, 7), true), 1316 * 8 * 100);
    EXPECT_EQ(transportRate(rateOf(42 + 204, 204, 1), false), 188 * 8 * 100) << "without the parity";
    EXPECT_FALSE(transportRate(rateOf(1358, 0, 0), false).has_value());
    EXPECT_FALSE(transportRate(rateOf(42, 188, 0), false).has_value());
}

TEST(Measurement, IsSevenValuesLeastSignificantByteFirst)
{
    const Measurement m = decodeMeasurement(values({1, 8000000, 7, -1, 188, 7, 10}));
    EXPECT_TRUE(m.present);
    EXPECT_EQ(m.bitRate, 8000000);
    EXPECT_EQ(m.delayFactorMs, 7);
    EXPECT_EQ(m.continuityErrors, -1);
    EXPECT_EQ(m.packetSize, 188);
    EXPECT_EQ(m.packetsPerDatagram, 7);
    EXPECT_EQ(m.constant, 10);
    EXPECT_THROW(decodeMeasurement(values({1, 2})), AnswerError);
    EXPECT_THROW(decodeMeasurement(values({7, 0, 0, 0, 0, 0, 10})), AnswerError);
}

TEST(InterArrivalTimes, AreNumbersWithASemicolonEach)
{
    EXPECT_EQ(parseInterArrivalTimes("998;1002;-3;"), (std::vector<std::int64_t>{998, 1002, -3}));
    EXPECT_TRUE(parseInterArrivalTimes("").empty());
    for (const char* wrong : {"998", "998;10", ";", "9x;", "not connected\n"})
        EXPECT_THROW(parseInterArrivalTimes(wrong), AnswerError) << wrong;
}

TEST(InterArrivalTimes, TheFirstFramesTimeSince1970IsNoInterval)
{
    std::vector<std::int64_t> times{1700000000000000, 1000, 1001};
    EXPECT_EQ(removeAbsoluteTimes(times), 1U);
    EXPECT_EQ(times, (std::vector<std::int64_t>{1000, 1001}));
}

TEST(InterArrivalTimes, TheFarthestTimesAreNoIntervalsEither)
{
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    constexpr auto highest = std::numeric_limits<std::int64_t>::max();
    std::vector<std::int64_t> times{lowest, 5, highest, -7};
    EXPECT_EQ(removeAbsoluteTimes(times), 2U);
    EXPECT_EQ(times, (std::vector<std::int64_t>{5, -7}));
}

TEST(InterArrivalTimes, StatisticsAreThoseOfTheList)
{
    const auto s = statisticsOf({4, 2, 4, 4, 5, 5, 7, 9});
    EXPECT_EQ(s.count, 8U);
    EXPECT_EQ(s.shortest, 2);
    EXPECT_EQ(s.longest, 9);
    EXPECT_DOUBLE_EQ(s.mean, 5);
    EXPECT_DOUBLE_EQ(s.deviation, 2);
    EXPECT_EQ(s.median, 5);
    EXPECT_EQ(statisticsOf({}).count, 0U);
}

TEST(Histogram, HoldsEveryValueOnce)
{
    std::vector<std::int64_t> times;
    for (std::int64_t i = 0; i < 1000; ++i)
        times.push_back(i * 7 % 1013);
    for (const std::size_t bins : {1U, 2U, 3U, 20U, 5000U}) {
        std::size_t counted = 0;
        const auto histogram = histogramOf(times, bins);
        for (const auto& bin : histogram)
            counted += bin.count;
        EXPECT_EQ(counted, times.size());
        EXPECT_LE(histogram.size(), bins);
        EXPECT_FALSE(histogram.back().outliers);
    }
    EXPECT_TRUE(histogramOf({}, 5).empty());
}

TEST(Histogram, AFewFarValuesDoNotSqueezeTheRest)
{
    std::vector<std::int64_t> times(1000);
    for (std::size_t i = 0; i < times.size(); ++i)
        times[i] = 1000 + static_cast<std::int64_t>(i % 100);
    times.push_back(100000);
    const auto histogram = histogramOf(times, 10);
    EXPECT_TRUE(histogram.back().outliers);
    EXPECT_EQ(histogram.back().count, 1U);
    EXPECT_EQ(histogram.back().to, 100001);
    EXPECT_LT(histogram.front().to, 1020);
}

TEST(EbsFrames, AreTakenApart)
{
    const EbsStatus status = parseEbsStatus("*17_a.FL:02_NS:0c$_DS:05");
    EXPECT_EQ(status.programs, 12);
    EXPECT_EQ(status.selected, 5);
    const EbsDecoderInfo info = parseEbsDecoderInfo("*32_e.DI:000f_0780_0438_0000_0007_0000_0000_0000_$");
    EXPECT_EQ(info.videoCode, 15);
    EXPECT_EQ(info.width, 1920);
    EXPECT_EQ(info.height, 1080);
    EXPECT_EQ(info.audioCode, 7);
    EXPECT_EQ(ebsVideoName(15), "HEVC");
    EXPECT_EQ(ebsAudioName(99), "code 99");
    EXPECT_EQ(ebsIndex(31), "1F");
    EXPECT_THROW(parseEbsStatus("*17_a.FL:02_NS:0c"), AnswerError);
    EXPECT_THROW(parseEbsDecoderInfo("SV: mx8"), AnswerError);
}

TEST(VersionLine, TellsSoftwareFpgaAndWhetherItIsConfigured)
{
    const VersionInfo info = parseVersion("SV: mx8 1.4 FPGA: 5/5/2021 4:52:47 done=OK");
    EXPECT_EQ(info.software, "1.4");
    EXPECT_EQ(info.fpga, "5/5/2021 4:52:47");
    EXPECT_EQ(info.fpgaConfigured, true);
    EXPECT_EQ(parseVersion("SV: mx8 1.4 FPGA: 5/5/2021 4:52:47 done=NOK").fpgaConfigured, false);
    EXPECT_EQ(parseVersion("SV: mx8 1.4 FPGA: bitfile not found").fpgaConfigured, std::nullopt);
    EXPECT_EQ(info.fpgaBuilt(), "2021-05-05T04:52:47");
    EXPECT_EQ(parseVersion("SV: mx8 1.4 FPGA: bitfile not found").fpgaBuilt(), std::nullopt);
    EXPECT_THROW(parseVersion("HELLO !"), AnswerError);
}

TEST(InterfaceSettings, AStaticAddressStandsFirst)
{
    InterfaceSettings settings;
    EXPECT_EQ(settings.text(), "dhcp");
    settings.vlan = 42;
    EXPECT_EQ(settings.text(), "dhcp;vlan_id=42");
    settings = {false, "192.168.1.20", "255.255.255.0", 42, "ethtool -s eth0 speed 100"};
    EXPECT_EQ(settings.text(), "192.168.1.20 255.255.255.0;vlan_id=42;ethtool -s eth0 speed 100");
}

Bytes basebandPacket()
{
    return withCrc32({0x00, 0x2a, 0x30, 0x05, 0x00, 0x20, 0x07, 0x66, 0x80, 0x11});
}

TEST(T2miPacket, HeaderAndBasebandFrameAreTakenApart)
{
    const auto packet = decodeT2miPacket(basebandPacket());
    ASSERT_TRUE(packet.has_value());
    EXPECT_EQ(packet->type, 0);
    EXPECT_EQ(packet->count, 0x2a);
    EXPECT_EQ(packet->superframeIndex, 3);
    EXPECT_EQ(packet->streamId, 5);
    EXPECT_EQ(packet->payloadBits, 32U);
    EXPECT_TRUE(packet->crcCorrect);
    ASSERT_TRUE(packet->basebandFrame.has_value());
    EXPECT_EQ(packet->basebandFrame->frameIndex, 7);
    EXPECT_EQ(packet->basebandFrame->plpId, 102);
    EXPECT_TRUE(packet->basebandFrame->interleavingFrameStart);
    EXPECT_EQ(packet->basebandFrame->bytes, 1U);
}

TEST(T2miPacket, SizeIsThatOfTheHeaderAndDamageShows)
{
    Bytes bytes = basebandPacket();
    EXPECT_EQ(t2miPacketSize(bytes), bytes.size());
    EXPECT_EQ(t2miPacketSize({0, 0, 0, 0, 0}), 0U);
    EXPECT_EQ(t2miPacketSize({0, 0, 0, 0, 0x7d, 0xe9}), 6U + 4030U + 4U) << "payload padded to whole bytes";
    bytes[9] ^= 1U;
    EXPECT_FALSE(decodeT2miPacket(bytes)->crcCorrect);
    bytes.pop_back();
    EXPECT_FALSE(decodeT2miPacket(bytes).has_value());
}

Bytes sdtSection(std::uint8_t number, std::uint8_t last, std::uint16_t id, const std::string& name)
{
    Bytes body{0x20, 0x01, 0xFF};
    append16(body, id);
    body.push_back(0xFC);
    append(body, makeLoop(serviceDescriptor(1, "", name)));
    return makeSection(0x42, 1, body, {number, last});
}

TEST(ServiceTable, SectionsThatAccumulatedCountOnce)
{
    const Bytes first = sdtSection(0, 1, 5, "One");
    const Bytes second = sdtSection(1, 1, 6, "Second");
    const ServiceTable half = readServices(first);
    EXPECT_FALSE(half.complete);
    const ServiceTable table = readServices(join({first, second, first, second}));
    EXPECT_TRUE(table.complete);
    ASSERT_EQ(table.services.services.size(), 2U);
    EXPECT_EQ(table.services.services[0].name, "One");
    EXPECT_EQ(table.services.services[1].name, "Second");
}

TEST(ServiceTable, DamageIsAnErrorThatSaysWhere)
{
    Bytes bytes = sdtSection(0, 0, 5, "One");
    bytes[12] ^= 1U;
    EXPECT_THROW(readServices(bytes), AnswerError);
    bytes.pop_back();
    try {
        readServices(bytes);
        FAIL();
    } catch (const AnswerError& error) {
        EXPECT_NE(std::string(error.what()).find("cut short at byte 0"), std::string::npos) << error.what();
    }
}

} // namespace
