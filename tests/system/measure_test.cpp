#include "firstinturn.h"
#include "systemsuite.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <numeric>
#include <QJsonDocument>
#include <QJsonObject>
#include <thread>

namespace {

using namespace tessary;
using namespace tessary::test;
using client::Milliseconds;
using Values = client::Measurement;
using Protocol = client::StreamServer::Protocol;

// demo.ts comes in as multicast at a constant rate, with continuity errors put in by the sender.
//                            | expected
// getethernetmes?, 8 periods  | bit rate of whole frames within 0.5 % of the sender's own count, 188 bytes,
// without a gap              | 7 packets, the errors of each and the sum of all to the unit
// getiat?                     | 1024 records, mean within 1 % of the sender's interval

struct Rate
{
    const char* name;
    const char* bitRate; ///< of the transport stream, as the sender takes it
    Protocol protocol;
    int errorsPerSecond;
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
    static RunningStream send(Protocol protocol, const QStringList& options)
    {
        const QString scheme = protocol == Protocol::Rtp ? "rtp" : "udp";
        const QString url = QString("%1://%2:%3").arg(scheme, group).arg(port);
        return instrument().send(
            QStringList{madeStream("demo.ts"), url, "--interface", "uplink", "--loop", "--json"} + options);
    }

    static Values measured() { return controller().measurement().value_or(Values{}); }

    /// Starts the capture and leaves the period behind that it began in.
    static void startCapture()
    {
        EXPECT_TRUE(waitUntil([] { return measured().bitRate > 0; })) << "no stream is measured";
        waitForPeriodEnd();
    }

    /// One reading of each of `count` periods, which are a little longer than a second.
    static std::vector<Values> readPeriods(int count)
    {
        std::vector<Values> readings;
        for (int i = 0; i < count; ++i) {
            std::this_thread::sleep_for(Milliseconds(1100));
            readings.push_back(measured());
        }
        return readings;
    }

    /// Returns when another period's figures are seen for the first time.
    static std::chrono::steady_clock::time_point waitForPeriodEnd()
    {
        const Values first = measured();
        EXPECT_TRUE(waitUntil([&] { return measured().bitRate != first.bitRate; }));
        return std::chrono::steady_clock::now();
    }

    /// One reading of each of `count` periods in a row, none left out and none read twice: each is read half
    /// a period after it should have closed. Empty when the machine did not let this happen in five attempts.
    static std::vector<Values> readEveryPeriod(std::size_t count)
    {
        using std::chrono::steady_clock;
        for (int attempt = 0; attempt < 5; ++attempt) {
            auto due = waitForPeriodEnd() + Milliseconds(500);
            std::vector<Values> readings;
            while (readings.size() < count) {
                std::this_thread::sleep_until(due);
                readings.push_back(measured());
                if (steady_clock::now() > due + Milliseconds(350))
                    break; // perhaps that of the next period already
                due += Milliseconds(1000);
            }
            if (readings.size() == count && steady_clock::now() < due)
                return readings;
        }
        return {};
    }

    /// Ends the stream; the sender's own count.
    static QJsonObject countOf(RunningStream& stream)
    {
        EXPECT_TRUE(stream.stop()) << stream.errors().constData();
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
        EXPECT_TRUE(waitUntil([] { return intervals().size() == 1024; }));
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

    /// The sender puts its errors in at even distances. The daemon's periods do not begin with the sender's
    /// seconds, so that of a whole number of seconds an error at the one edge may fall outside, or one at the
    /// other edge inside: 1 more or less is inherent in one period. In a row of periods only the two outer
    /// edges count, so the sum, too, may be 1 off and no more, however many there are. To this come the time
    /// by which periods are longer than a second (an interval each), and the sender's lateness at the edges.
    static void expectErrors(
        const std::vector<Values>& readings, int perSecond, double interval, double lateness)
    {
        std::vector<int> errors;
        errors.reserve(readings.size());
        for (const Values& values : readings)
            errors.push_back(values.continuityErrors);
        const double late = perSecond * lateness;
        const int inherent = perSecond > 0 ? 1 : 0;
        for (const int ofPeriod : errors)
            EXPECT_NEAR(ofPeriod, perSecond, inherent + perSecond * interval + late);
        const double periods = static_cast<double>(errors.size());
        const int sum = std::accumulate(errors.begin(), errors.end(), 0);
        EXPECT_GE(sum, perSecond * periods - inherent - late);
        EXPECT_LE(sum, perSecond * periods * (1 + interval) + inherent + late);
        std::nth_element(errors.begin(), errors.begin() + 4, errors.end());
        EXPECT_EQ(errors[4], perSecond);
        std::cout << sum << " continuity errors in " << periods << " periods (" << perSecond
                  << " a second sent, " << lateness * 1e3 << " ms late at most)\n";
    }
};

} // namespace

TEST_P(MeasurementAt, FiguresAreThoseOfTheSender)
{
    const Rate& rate = GetParam();
    const FirstInTurn first(instrument().daemonPid());
    controller().setServer({rate.protocol, group, port, 0, 0});
    RunningStream stream = send(rate.protocol,
        {"--bitrate", rate.bitRate, "--cc-errors-per-second", QString::number(rate.errorsPerSecond)});
    startCapture();
    const auto readings = readEveryPeriod(8);
    const double interval = meanInterval();
    const QJsonObject count = countOf(stream);

    ASSERT_EQ(readings.size(), 8U) << "the periods could not be read in time: leave the machine more time";
    EXPECT_EQ(count["failed_datagrams"].toInt(), 0);
    const double sent = count["frame_bits_per_second"].toDouble();
    EXPECT_NEAR(meanBitRate(readings), sent, sent * 0.005);
    const double sentInterval = count["seconds"].toDouble() * 1e6 / count["datagrams"].toDouble();
    EXPECT_NEAR(interval, sentInterval, sentInterval * 0.01);
    for (const Values& values : readings) {
        EXPECT_TRUE(values.present);
        EXPECT_EQ(values.packetSize, 188);
        EXPECT_EQ(values.packetsPerDatagram, 7);
        EXPECT_GE(values.delayFactorMs, 1);
        EXPECT_EQ(values.constant, 10);
    }
    EXPECT_NEAR(count["injected_cc_errors"].toInt(), rate.errorsPerSecond * count["seconds"].toDouble(), 1.5);
    expectErrors(readings, rate.errorsPerSecond, sentInterval / 1e6, count["max_late_us"].toDouble() / 1e6);
    std::cout << "bit rate " << meanBitRate(readings) << " (sent " << sent << "), interval " << interval
              << " us (sent " << sentInterval << ")\n";
}

INSTANTIATE_TEST_SUITE_P(Rates, MeasurementAt,
    testing::Values(Rate{"1MbitUdp", "1M", Protocol::Udp, 3}, Rate{"10MbitRtp", "10M", Protocol::Rtp, 7},
        Rate{"50MbitUdp", "50M", Protocol::Udp, 11}, Rate{"200MbitUdp", "200M", Protocol::Udp, 25}),
    nameOf);

/// A lost datagram would break the counters of its packets: none may be missing. (The frames themselves are
/// counted by the capture's own test.)
TEST_F(Measurement, NothingIsMissingAt50000DatagramsASecond)
{
    const FirstInTurn first(instrument().daemonPid()); // the capture thread takes it over
    controller().setServer({Protocol::Udp, group, port + 1, 0, 0});
    RunningStream stream =
        instrument().send({madeStream("demo.ts"), QString("udp://%1:%2").arg(group).arg(port + 1),
            "--interface", "uplink", "--loop", "--json", "--packets", "1", "--datagram-rate", "50000"});
    startCapture();
    const auto readings = readPeriods(4);
    const QJsonObject count = countOf(stream);
    const double sent = count["frame_bits_per_second"].toDouble();
    EXPECT_NEAR(meanBitRate(readings), sent, sent * 0.005);
    for (const Values& values : readings)
        EXPECT_EQ(values.continuityErrors, 0);
    EXPECT_NEAR(count["datagrams"].toDouble() / count["seconds"].toDouble(), 50000, 500);
}
