// How a datagram divides into packets, and the continuity rule.
#include "frames.h"
#include "measure/receptionstatistics.h"

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t start = 1'700'000'000'000'000; // µs

/// Statistics in the middle of their first whole period: what is counted stays readable.
class Continuity : public ::testing::Test
{
protected:
    Continuity() { statistics.oldTimestamp = start; }

    TsPacketLayout feed(const Bytes& payload, protocol transport = protocolUdp)
    {
        const Bytes frame = datagram(transport, payload);
        return statistics.addFrame(transport, headerOf(frame, start), frame.data()).layout;
    }

    int errorsAfter(const std::vector<Bytes>& packets)
    {
        for (const Bytes& packet : packets)
            feed(packet);
        return statistics.NbDiscontinuedPaquetTS;
    }

    ReceptionStatistics statistics;
};

void expectLayout(const TsPacketLayout& layout, int size, int count)
{
    EXPECT_EQ(layout.size, size);
    EXPECT_EQ(layout.count, count);
}

} // namespace

TEST_F(Continuity, SevenPacketsOf188AreFound)
{
    expectLayout(feed(Bytes(1316)), 188, 7);
    EXPECT_EQ(statistics.NbPaquetTS, 7u);
}

TEST_F(Continuity, SevenPacketsOf204AreFound)
{
    expectLayout(feed(Bytes(1428)), 204, 7);
    EXPECT_EQ(statistics.NbPaquetTS, 7u);
}

TEST_F(Continuity, PayloadThatIsNoWholeNumberOfPacketsIsNotExamined)
{
    expectLayout(feed(Bytes(1000)), 0, 0);
    EXPECT_EQ(statistics.NbPaquetTS, 0u);
}

TEST_F(Continuity, EmptyPayloadHasNoPacketsOf188)
{
    expectLayout(feed({}), 188, 0);
    EXPECT_EQ(statistics.NbPaquetTS, 0u);
}

TEST_F(Continuity, CommonMultipleOfBothSizesCountsAs188)
{
    expectLayout(feed(Bytes(188 * 51)), 188, 51); // 188 * 51 = 204 * 47
}

TEST_F(Continuity, PayloadOfEachTransportBeginsBehindItsHeader)
{
    for (const protocol transport : {protocolUdp, protocolRtp, protocolUdpT2mi, protocolRtpT2mi}) {
        ReceptionStatistics own;
        const Bytes frame = datagram(transport, join({tsPacket(300, 4), tsPacket(301, 9)}));
        const TsPacketLayout layout = own.addFrame(transport, headerOf(frame, start), frame.data()).layout;
        expectLayout(layout, 188, 2);
        EXPECT_EQ(own.tab_continuity_counter[300], 0x84) << transport;
        EXPECT_EQ(own.tab_continuity_counter[301], 0x89) << transport;
    }
}

TEST_F(Continuity, UnknownTransportHasAnEmptyPayload)
{
    expectLayout(feed(tsPacket(300, 4), static_cast<protocol>(4)), 188, 0);
    EXPECT_EQ(statistics.tab_continuity_counter[300], 0);
}

TEST_F(Continuity, CountersInOrderWithWrapAreNoError)
{
    std::vector<Bytes> packets;
    for (unsigned i = 5; i < 45; ++i)
        packets.push_back(tsPacket(100, i & 0x0f));
    EXPECT_EQ(errorsAfter(packets), 0);
}

TEST_F(Continuity, FirstPacketOfAPidIsNoErrorAndAGapBehindItIsOne)
{
    EXPECT_EQ(errorsAfter({tsPacket(100, 13)}), 0);
    EXPECT_EQ(errorsAfter({tsPacket(100, 15)}), 1);
}

TEST_F(Continuity, RepeatedPacketIsAnError)
{
    EXPECT_EQ(errorsAfter({tsPacket(100, 0), tsPacket(100, 1), tsPacket(100, 1), tsPacket(100, 2)}), 1);
}

TEST_F(Continuity, NullPacketsAreNeverAnErrorButAreRemembered)
{
    EXPECT_EQ(errorsAfter({tsPacket(8191, 0), tsPacket(8191, 0), tsPacket(8191, 7)}), 0);
    EXPECT_EQ(statistics.tab_continuity_counter[8191], 0x87);
}

TEST_F(Continuity, PacketsWithoutPayloadAreNotCheckedButTheirCounterIsTaken)
{
    EXPECT_EQ(errorsAfter({tsPacket(100, 0), tsPacket(100, 7, adaptationOnly), tsPacket(100, 8)}), 0);
    EXPECT_EQ(errorsAfter({tsPacket(100, 3, reserved), tsPacket(100, 4)}), 0);
    EXPECT_EQ(errorsAfter({tsPacket(100, 12, adaptationOnly), tsPacket(100, 5)}), 1);
}

TEST_F(Continuity, AnnouncedDiscontinuityIsNoError)
{
    EXPECT_EQ(
        errorsAfter({tsPacket(100, 0), tsPacket(100, 9, adaptationAndPayload, true), tsPacket(100, 10)}), 0);
    EXPECT_EQ(errorsAfter({tsPacket(100, 3, adaptationAndPayload, false)}), 1);
}

TEST_F(Continuity, PayloadBytesAreNotTakenForTheDiscontinuityIndicator)
{
    EXPECT_EQ(
        errorsAfter({tsPacket(100, 0), tsPacket(100, 9)}), 1); // byte 5 is 0xff, but belongs to the payload
}

TEST_F(Continuity, PidsAreApart)
{
    EXPECT_EQ(errorsAfter({tsPacket(100, 0), tsPacket(101, 5), tsPacket(100, 1), tsPacket(101, 6)}), 0);
}

TEST_F(Continuity, ErrorIndicatorAndPriorityBitsAreNoPartOfThePid)
{
    Bytes second = tsPacket(100, 1);
    second[1] |= 0xe0; // transport_error_indicator, payload_unit_start_indicator, transport_priority
    EXPECT_EQ(errorsAfter({tsPacket(100, 0), second, tsPacket(100, 2)}), 0);
    EXPECT_EQ(statistics.tab_continuity_counter[100], 0x82);
}

TEST_F(Continuity, SyncByteIsNotLookedAt)
{
    Bytes packet = tsPacket(100, 3);
    packet[0] = 0;
    EXPECT_EQ(errorsAfter({tsPacket(100, 0), packet}), 1);
}

TEST_F(Continuity, TableOutlivesThePeriod)
{
    feed(tsPacket(100, 0));
    const Bytes frame = datagram(protocolUdp, tsPacket(100, 2));
    const auto closed =
        statistics.addFrame(protocolUdp, headerOf(frame, start + 1'000'001), frame.data()).closedPeriod;
    ASSERT_TRUE(closed);
    EXPECT_EQ(closed->discontinuities, 1);
    EXPECT_EQ(statistics.NbDiscontinuedPaquetTS, 0);
    EXPECT_EQ(statistics.NbPaquetTS, 0u);
    EXPECT_EQ(errorsAfter({tsPacket(100, 3)}), 0);
}

TEST_F(Continuity, ErrorCountStopsAtItsLimit)
{
    statistics.NbDiscontinuedPaquetTS = 2147483646;
    EXPECT_EQ(errorsAfter({tsPacket(100, 0), tsPacket(100, 0), tsPacket(100, 0)}), 2147483647);
}
