// The callback and the readers of the results, without an interface.
#include "measurementfixture.h"

#include <memory>
#include <thread>

TEST_F(Measurement, StartsIdleWithTheDefaultStream)
{
    EXPECT_FALSE(measurement.running);
    EXPECT_EQ(measurement.filter, "host 239.0.0.1 && port 1234");
    EXPECT_EQ(measurement.protocol, protocolUdp);
    EXPECT_EQ(measurement.buffer->capacity(), 1024u);
    EXPECT_TRUE(measurement.buffer->empty());
    EXPECT_EQ(log.lines(), std::vector<std::string>{"------------------pcap constr ------------------"});
}

TEST_F(Measurement, LoadStoresTheStreamAndStartsNothing)
{
    log.forget();
    measurement.load(protocolRtpT2mi, "host 239.0.0.2 && port 5000");
    EXPECT_EQ(measurement.protocol, protocolRtpT2mi);
    EXPECT_EQ(measurement.filter, "host 239.0.0.2 && port 5000");
    EXPECT_FALSE(measurement.running);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"------------------pcap load ------------------"});
}

TEST_F(Measurement, StopOfAnIdleOneDoesNothingAndLogsNothing)
{
    receive(sevenPackets, 1000);
    log.forget();
    measurement.stop();
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(records().size(), 1u);
}

TEST_F(Measurement, IsLoggedWhenItEnds)
{
    auto other = std::make_unique<ETHERNETMeasurement>();
    log.forget();
    other.reset();
    EXPECT_EQ(log.lines(), std::vector<std::string>{"------------------pcap destruct ------------------"});
}

TEST_F(Measurement, WithoutAnyFrameOnlyTheConstantIsNotZero)
{
    EXPECT_EQ(values(), (std::vector<int>{0, 0, 0, 0, 0, 0, 10}));
}

TEST_F(Measurement, ReportsTheLastPeriodAndTheLastDatagram)
{
    receive(datagram(protocolUdp, tsPacket(100, 0)), 1'000'000'000);
    for (int i = 1; i <= 1000; ++i)
        receive(
            sevenPackets, 1'000'000'000 + i * 1000); // 7 packets of PID 0 without payload bit: never checked
    receive(datagram(protocolUdp, tsPacket(100, 5)), 1'001'001'000);
    receive(datagram(protocolUdp, Bytes(1428)), 1'001'001'500);
    const std::int64_t bits = (1000 * 1358 + 42 + 188) * 8;
    EXPECT_EQ(
        values(), (std::vector<int>{1, static_cast<int>(bits * 1'000'000 / 1'001'000), 1000, 1, 204, 7, 10}));
}

TEST_F(Measurement, StreamIsPresentForOneSecondAfterItsLastFrame)
{
    // Looked at when the last frame came so many seconds ago, and the clock has not stepped meanwhile.
    const auto valuesBehind = [this](std::time_t seconds) {
        std::vector<int> seen;
        std::time_t now = 0;
        do {
            now = std::time(nullptr);
            receptionStatistics.LastReceivedPacketTime = now - seconds;
            seen = values();
        } while (std::time(nullptr) != now);
        return seen;
    };
    receive(sevenPackets, 1'000'000'000);
    EXPECT_EQ(values().front(), 1);
    EXPECT_EQ(valuesBehind(1).front(), 1);
    EXPECT_EQ(valuesBehind(2), (std::vector<int>{0, 0, 0, 0, 0, 0, 10}));
    receive(sevenPackets, 1'000'001'000);
    EXPECT_EQ(values().front(), 1);
}

TEST_F(Measurement, NowhereToWriteTheMeasureIsAccepted)
{
    measurement.getMeasure(nullptr);
    EXPECT_EQ(values().size(), 7u);
}

TEST_F(Measurement, StatisticsAreSharedByAllMeasurements)
{
    receive(sevenPackets, 1'000'000'000);
    ETHERNETMeasurement other;
    const pcap_pkthdr header = headerOf(sevenPackets, 1'000'000'300);
    ETHERNETMeasurement::onPacketReceived(
        reinterpret_cast<unsigned char*>(&other), &header, sevenPackets.data());
    std::vector<pcap_measured_value_struct> out;
    other.getBuffer(&out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].interArrival, 300);
}
