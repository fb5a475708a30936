// Arrival records, bit rate and delay factor.
#include "frames.h"
#include "measure/receptionstatistics.h"

#include <gtest/gtest.h>
#include <limits>

namespace {

constexpr std::int64_t start = 1'700'000'000'000'000; // µs
constexpr std::int64_t frameBits =
    10864; // 7 packets of 188 bytes, UDP, IPv4 and Ethernet headers: 1358 bytes

class VirtualBuffer : public ::testing::Test
{
protected:
    /// The next frame, `gap` µs after the previous one.
    FrameMeasurement after(std::int64_t gap)
    {
        now += gap;
        return statistics.addFrame(protocolUdp, headerOf(frame, now), frame.data());
    }

    FrameMeasurement at(std::int64_t microseconds)
    {
        now = microseconds;
        return after(0);
    }

    const Bytes frame = datagram(protocolUdp, Bytes(1316));
    std::int64_t now = start;
    ReceptionStatistics statistics;
};

void expectLevels(const FrameMeasurement& measurement, std::int64_t before, std::int64_t afterwards)
{
    EXPECT_EQ(measurement.record.bufferBefore, before);
    EXPECT_EQ(measurement.record.bufferAfter, afterwards);
}

} // namespace

TEST_F(VirtualBuffer, FirstFrameClosesAPeriodWithNothingInIt)
{
    const FrameMeasurement first = after(0);
    EXPECT_EQ(first.record.interArrival, start);
    ASSERT_TRUE(first.closedPeriod);
    EXPECT_EQ(first.closedPeriod->bitrate, 0);
    EXPECT_EQ(first.closedPeriod->delayFactorMs, 1);
}

TEST_F(VirtualBuffer, RecordHoldsTimeGapAndLengthOnTheWire)
{
    after(0);
    pcap_pkthdr header = headerOf(frame, start + 1002);
    header.caplen = 60; // captured in part only
    const pcap_measured_value_struct record = statistics.addFrame(protocolUdp, header, frame.data()).record;
    EXPECT_EQ(record.timestamp, start + 1002);
    EXPECT_EQ(record.interArrival, 1002);
    EXPECT_EQ(record.length, 1358);
    EXPECT_EQ(record.bufferAfter, frameBits);
}

/// The example that docs/measurement.md works out. The first column is the gap to the previous datagram.
///     250 250 250 250 250 ms   nothing drains yet: 5 datagrams pile up, 54,320 bits in 1.25 s
///     250  50 450 250 250 ms   drained at 43,456 bit/s; the third one comes early, then a gap
TEST_F(VirtualBuffer, DelayFactorFollowsTheWorkedExample)
{
    after(0);
    for (int i = 0; i < 4; ++i)
        EXPECT_FALSE(after(250'000).closedPeriod);
    const FrameMeasurement fifth = after(250'000);
    ASSERT_TRUE(fifth.closedPeriod);
    EXPECT_EQ(fifth.closedPeriod->bitrate, 43'456);
    EXPECT_EQ(fifth.closedPeriod->delayFactorMs, 1250);

    expectLevels(after(250'000), 0, 10'864);
    expectLevels(after(50'000), 0, 10'864);
    expectLevels(after(450'000), 8'692, 19'556);
    expectLevels(after(250'000), 0, 10'864);
    const FrameMeasurement tenth = after(250'000);
    expectLevels(tenth, 0, 10'864);
    ASSERT_TRUE(tenth.closedPeriod);
    EXPECT_EQ(tenth.closedPeriod->bitrate, 43'456);
    EXPECT_EQ(tenth.closedPeriod->delayFactorMs, 450);
}

TEST_F(VirtualBuffer, SteadyStreamNeedsOneDatagramOfBuffer)
{
    std::optional<ReceptionPeriod> last;
    for (int i = 0; i < 3100; ++i) {
        const FrameMeasurement measurement = after(1000);
        if (measurement.closedPeriod)
            last = measurement.closedPeriod;
    }
    ASSERT_TRUE(last);
    EXPECT_EQ(last->bitrate, 10'864'000);
    EXPECT_EQ(last->delayFactorMs, 1);
}

TEST_F(VirtualBuffer, BurstsOfTenNeedTheirLengthInTime)
{
    std::optional<ReceptionPeriod> last;
    for (int i = 0; i < 4100; ++i) {
        const FrameMeasurement measurement = after(i % 10 ? 0 : 10'000);
        if (measurement.closedPeriod)
            last = measurement.closedPeriod;
    }
    ASSERT_TRUE(last);
    EXPECT_EQ(last->bitrate, 10'864'000);
    EXPECT_EQ(last->delayFactorMs, 10);
}

TEST_F(VirtualBuffer, PeriodEndsOnlyBeyondOneSecond)
{
    after(0);
    EXPECT_FALSE(after(1'000'000).closedPeriod);
    EXPECT_TRUE(after(1).closedPeriod);
}

TEST_F(VirtualBuffer, ClosingResetsAllButTheBitRate)
{
    after(0);
    after(500'000);
    after(600'000);
    EXPECT_EQ(statistics.bitrate, 2 * frameBits * 1'000'000 / 1'100'000);
    EXPECT_EQ(statistics.dt, 0);
    EXPECT_EQ(statistics.NbBitsRecu, 0);
    EXPECT_EQ(statistics.VBmax, 0);
    EXPECT_EQ(statistics.VBmin, 2147483647);
}

TEST_F(VirtualBuffer, FrameAfterALongSilenceClosesWithASmallRate)
{
    after(0);
    const FrameMeasurement late = after(10'000'000);
    ASSERT_TRUE(late.closedPeriod);
    EXPECT_EQ(late.closedPeriod->bitrate, 1086);
    EXPECT_EQ(late.closedPeriod->delayFactorMs, 10'003); // 10,864 bits at 1,086 bit/s
}

TEST_F(VirtualBuffer, ClockSetBackDelaysTheEndOfThePeriod)
{
    after(0);
    EXPECT_FALSE(after(-5'000'000).closedPeriod);
    EXPECT_EQ(statistics.dt, -5'000'000);
    EXPECT_FALSE(after(5'500'000).closedPeriod);
    EXPECT_TRUE(after(500'001).closedPeriod);
}

TEST_F(VirtualBuffer, ExtremeTimeStampsAndLevelsStayInRange)
{
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    at(highest);
    at(lowest);
    at(highest);
    pcap_pkthdr header = headerOf(frame, 0);
    header.len = std::numeric_limits<bpf_u_int32>::max();
    for (const std::int64_t seconds : {lowest, highest, std::int64_t(0), lowest}) {
        header.ts.tv_sec = seconds;
        header.ts.tv_usec = seconds;
        statistics.addFrame(protocolUdp, header, frame.data());
    }
    statistics.NbBitsRecu = highest;
    statistics.VBmax = highest;
    statistics.VBmin = lowest;
    statistics.bitrate = highest;
    statistics.dt = lowest;
    after(0);
    statistics.dt = 1'000'001;
    const FrameMeasurement last = after(0);
    ASSERT_TRUE(last.closedPeriod);
    EXPECT_GE(last.closedPeriod->bitrate, 0);
    EXPECT_GE(last.closedPeriod->delayFactorMs, 1);
}
