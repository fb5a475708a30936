#include "systemsuite.h"

#include <algorithm>
#include <iostream>
#include <numeric>
#include <QJsonDocument>
#include <QJsonObject>
#include <sched.h>
#include <thread>

namespace {

using namespace tessary;
using namespace tessary::test;
using client::Milliseconds;
using Values = client::Measurement;
using Protocol = client::StreamServer::Protocol;

// demo.ts comes in as multicast at a constant rate, with continuity errors put in by the sender.
//                            | expected
// getethernetmes?, 6 periods  | bit rate of whole frames within 0.5 % of the sender's own count, 188 bytes,
//                            | 7 packets, the errors per second to the unit
// getiat?                     | 1024 records, mean within 1 % of the sender's interval

struct Rate
{
    const char* name;
    const char* bitRate; ///< of the transport stream, as the sender takes it
    Protocol protocol;
    int errorsPerSecond;
    int seconds; ///< of sending: 1024 datagrams have to fit
};

void PrintTo(const Rate& rate, std::ostream* out)
{
    *out << rate.name;
}

std::string nameOf(const testing::TestParamInfo<Rate>& info)
{
    return info.param.name;
}

constexpr const char* group = "239.5.5.5";
constexpr int port = 5050;

class Measurement : public SystemSuite
{
protected:
    void SetUp() override { line().discardInput(); }

    static RunningStream send(Protocol protocol, const QStringList& options)
    {
        const QString scheme = protocol == Protocol::Rtp ? "rtp" : "udp";
        const QString url = QString("%1://%2:%3").arg(scheme, group).arg(port);
        return instrument().send(
            QStringList{madeStream("demo.ts"), url, "--interface", "uplink", "--loop", "--json"} + options);
    }

    /// Starts the capture and leaves the period behind that it began in.
    static void startCapture()
    {
        controller().measurement();
        std::this_thread::sleep_for(Milliseconds(2500));
    }

    /// One reading of each of `count` periods, which are a little longer than a second.
    static std::vector<Values> readPeriods(int count)
    {
        std::vector<Values> readings;
        for (int i = 0; i < count; ++i) {
            std::this_thread::sleep_for(Milliseconds(1100));
            readings.push_back(controller().measurement().value_or(Values{}));
        }
        return readings;
    }

    static QJsonObject countOf(RunningStream& stream)
    {
        EXPECT_TRUE(stream.waitUntilSent(30000)) << stream.errors().constData();
        return QJsonDocument::fromJson(stream.output()).object();
    }

    static double meanBitRate(const std::vector<Values>& readings)
    {
        const auto add = [](double sum, const Values& values) { return sum + values.bitRate; };
        return std::accumulate(readings.begin(), readings.end(), 0.0, add)
            / static_cast<double>(readings.size());
    }
};

class MeasurementAt : public Measurement, public testing::WithParamInterface<Rate>
{
protected:
    static std::vector<std::int64_t> intervals()
    {
        return controller().interArrivalTimes().value_or(std::vector<std::int64_t>{});
    }

    /// Middle one of many readings: at high rates one spans some 50 ms only, in which a sender that was held
    /// up shows.
    static double meanInterval()
    {
        EXPECT_TRUE(waitUntil([] { return intervals().size() == 1024; }, 8000));
        std::vector<double> means;
        for (int i = 0; i < 15; ++i) {
            const auto times = intervals();
            EXPECT_EQ(times.size(), 1024U);
            means.push_back(
                std::accumulate(times.begin(), times.end(), 0.0) / static_cast<double>(times.size()));
        }
        std::sort(means.begin(), means.end());
        return means[means.size() / 2];
    }
};

} // namespace

TEST_P(MeasurementAt, FiguresAreThoseOfTheSender)
{
    const Rate& rate = GetParam();
    controller().setServer({rate.protocol, group, port, 0, 0});
    RunningStream stream = send(rate.protocol,
        {"--bitrate", rate.bitRate, "--duration", QString::number(rate.seconds), "--cc-errors-per-second",
            QString::number(rate.errorsPerSecond)});
    startCapture();
    const auto readings = readPeriods(6);
    const double interval = meanInterval();
    const QJsonObject count = countOf(stream);

    EXPECT_EQ(count["failed_datagrams"].toInt(), 0);
    const double sent = count["frame_bits_per_second"].toDouble();
    EXPECT_NEAR(meanBitRate(readings), sent, sent * 0.005);
    const double sentInterval = count["seconds"].toDouble() * 1e6 / count["datagrams"].toDouble();
    EXPECT_NEAR(interval, sentInterval, sentInterval * 0.01);
    std::vector<int> errors;
    for (const Values& values : readings) {
        EXPECT_TRUE(values.present);
        EXPECT_EQ(values.packetSize, 188);
        EXPECT_EQ(values.packetsPerDatagram, 7);
        EXPECT_GE(values.delayFactorMs, 1);
        EXPECT_EQ(values.constant, 10);
        EXPECT_NEAR(values.continuityErrors, rate.errorsPerSecond, rate.errorsPerSecond ? 1 : 0);
        errors.push_back(values.continuityErrors);
    }
    std::nth_element(errors.begin(), errors.begin() + 3, errors.end());
    EXPECT_EQ(errors[3], rate.errorsPerSecond);
    std::cout << "bit rate " << meanBitRate(readings) << " (sent " << sent << "), interval " << interval
              << " us (sent " << sentInterval << ")\n";
}

INSTANTIATE_TEST_SUITE_P(Rates, MeasurementAt,
    testing::Values(Rate{"1MbitUdp", "1M", Protocol::Udp, 3, 23},
        Rate{"10MbitRtp", "10M", Protocol::Rtp, 7, 23}, Rate{"50MbitUdp", "50M", Protocol::Udp, 0, 23},
        Rate{"200MbitUdp", "200M", Protocol::Udp, 25, 23}),
    nameOf);

TEST_F(Measurement, PacketsOf204BytesAreSeen)
{
    controller().setServer({Protocol::Udp, group, port, 0, 0});
    RunningStream stream = send(Protocol::Udp, {"--packet-size", "204", "--packets", "5", "--duration", "4"});
    startCapture();
    const auto values = controller().measurement();
    ASSERT_TRUE(values.has_value());
    EXPECT_EQ(values->packetSize, 204);
    EXPECT_EQ(values->packetsPerDatagram, 5);
    EXPECT_EQ(values->continuityErrors, 0);
    countOf(stream);
}

TEST_F(Measurement, StreamThatEndsIsNoLongerPresent)
{
    controller().setServer({Protocol::Udp, group, port, 0, 0});
    RunningStream stream = send(Protocol::Udp, {"--duration", "3"});
    startCapture();
    EXPECT_TRUE(controller().measurement().value_or(Values{}).present);
    countOf(stream);
    std::this_thread::sleep_for(Milliseconds(2200));
    const Values values = controller().measurement().value_or(Values{});
    EXPECT_FALSE(values.present);
    EXPECT_EQ(values.bitRate, 0);
    EXPECT_EQ(values.delayFactorMs, 0);
    EXPECT_EQ(values.continuityErrors, 0);
    EXPECT_EQ(values.packetSize, 0);
    EXPECT_EQ(values.packetsPerDatagram, 0);
    EXPECT_EQ(values.constant, 10);
}

/// A lost datagram would break the counters of its packets: none may be missing. (The frames themselves are
/// counted by the capture's own test.)
TEST_F(Measurement, NothingIsMissingAt50000DatagramsASecond)
{
    const sched_param first{1};
    const auto daemon = static_cast<pid_t>(instrument().daemonPid());
    sched_setscheduler(daemon, SCHED_RR,
        &first); // the capture thread takes it over: what else runs here must not hold it up
    controller().setServer({Protocol::Udp, group, port + 1, 0, 0});
    RunningStream stream = instrument().send(
        {madeStream("demo.ts"), QString("udp://%1:%2").arg(group).arg(port + 1), "--interface", "uplink",
            "--loop", "--json", "--packets", "1", "--datagram-rate", "50000", "--duration", "8"});
    startCapture();
    const auto readings = readPeriods(4);
    const QJsonObject count = countOf(stream);
    const sched_param usual{0};
    sched_setscheduler(daemon, SCHED_OTHER, &usual);
    const double sent = count["frame_bits_per_second"].toDouble();
    EXPECT_NEAR(meanBitRate(readings), sent, sent * 0.005);
    for (const Values& values : readings)
        EXPECT_EQ(values.continuityErrors, 0);
    EXPECT_NEAR(count["datagrams"].toDouble() / count["seconds"].toDouble(), 50000, 500);
}
