#include "client/tessaryctl/measurementlog.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

using namespace tessary::client;
using namespace tessary::ctl;

namespace {

using Event = LogEntry::Event;
using Loss = MeasurementLog::Loss;

constexpr int rate = 10'000'000;

/// An instrument that a log reads every 0.2 s, and the rows that come of it.
class Night
{
public:
    explicit Night(LogSettings settings = {})
        : m_log(std::move(settings), [this](const LogEntry& entry) { rows.push_back(entry); })
    {
    }

    /// Periods of a little more than a second, each a little different.
    void stream(int periods, int errorsEach = 0, int bitRate = rate, int packets = 7)
    {
        for (int i = 0; i < periods; ++i) {
            m_figures = {
                true, bitRate + 1 + static_cast<int>(m_random() % 1000), 2, errorsEach, 188, packets, 10};
            read(1.004);
        }
    }

    void silence(double seconds)
    {
        m_figures = {};
        read(seconds);
    }

    void lost(Loss loss, double seconds, const std::string& note = "")
    {
        for (const double end = m_now + seconds; m_now < end; m_now += 1)
            m_log.lost(loss, moment(m_now), note);
        m_nextReading = m_now;
    }

    MeasurementLog& log() { return m_log; }
    MeasurementLog::Moment now() const { return moment(m_now); }

    long count(Event event) const
    {
        return std::count_if(rows.begin(), rows.end(), [&](const auto& row) { return row.event == event; });
    }
    const LogEntry& first(Event event) const
    {
        const auto found =
            std::find_if(rows.begin(), rows.end(), [&](const auto& row) { return row.event == event; });
        return found == rows.end() ? m_none : *found;
    }

    std::vector<LogEntry> rows;

private:
    static MeasurementLog::Moment moment(double at)
    {
        return {PeriodWatch::Clock::time_point(std::chrono::duration_cast<PeriodWatch::Clock::duration>(
                    std::chrono::duration<double>(at))),
            wallTimeOf(1'774'745'000 + at)};
    }

    void read(double seconds)
    {
        for (const double end = m_now + seconds; m_nextReading < end; m_nextReading += 0.2) {
            const auto asked = moment(m_nextReading);
            if (m_log.add(
                    {asked.steady, asked.steady + std::chrono::milliseconds(20), m_figures}, asked.wall))
                m_log.addArrivals({1000, 1100, static_cast<std::int64_t>(m_random() % 1000)}, asked.steady);
        }
        m_now += seconds;
    }

    MeasurementLog m_log;
    Measurement m_figures;
    std::mt19937 m_random{7};
    double m_now = 1000;
    double m_nextReading = 1000;
    LogEntry m_none;
};

StreamServer server(StreamServer::Protocol protocol)
{
    StreamServer server;
    server.protocol = protocol;
    server.address = "239.0.0.1";
    server.port = 1234;
    return server;
}

TEST(MeasurementLog, ACaptureThatHasJustBegunIsNoLossOfTheStream)
{
    LogSettings settings;
    settings.limits.loss = true;
    Night night(settings);
    night.silence(0.5); // the first datagram is yet to come
    night.stream(10);
    night.lost(Loss::Answer, 3, "no answer in time");
    night.silence(1.5); // the server has been set again, its group is being joined
    night.stream(10);
    EXPECT_EQ(night.count(Event::Absent), 0);
    EXPECT_EQ(night.log().totals().rowsWithCrossing, 0);
    night.lost(Loss::Answer, 3, "no answer in time");
    night.silence(4);
    night.stream(10);
    ASSERT_EQ(night.count(Event::Absent), 1);
    EXPECT_NEAR(night.first(Event::Absent).seconds.value_or(0), 2, 0.3) << "since the first look";
    EXPECT_EQ(night.first(Event::Absent).crossed, "loss");
}

TEST(MeasurementLog, EachPeriodHasOneRow)
{
    Night night;
    night.stream(600, 3);
    const long periods = night.count(Event::Period);
    EXPECT_NEAR(static_cast<double>(periods), 597, 1); // the first ones hold something of before
    long errors = 0;
    for (const LogEntry& row : night.rows)
        errors += row.errors.value_or(0);
    EXPECT_EQ(errors, 3 * periods);
    EXPECT_EQ(night.log().totals().periods, periods);
    EXPECT_EQ(night.log().totals().errors, errors);
    EXPECT_EQ(night.log().totals().missed, 0);
}

TEST(MeasurementLog, ARowHasTheFiguresAndTheTransportStreamsRate)
{
    for (const auto protocol : {StreamServer::Protocol::Udp, StreamServer::Protocol::Rtp}) {
        LogSettings settings;
        settings.server = server(protocol);
        Night night(settings);
        night.stream(6, 1);
        const LogEntry& row = night.first(Event::Period);
        const double headers = protocol == StreamServer::Protocol::Udp ? 42 : 54;
        ASSERT_TRUE(row.frameRate.has_value() && row.transportRate.has_value());
        EXPECT_NEAR(static_cast<double>(*row.transportRate),
            static_cast<double>(*row.frameRate) * 1316 / (1316 + headers), 1);
        EXPECT_EQ(row.delayFactorMs, 2);
        EXPECT_EQ(row.errors, 1);
        EXPECT_EQ(row.present, 1);
        EXPECT_EQ(row.packetSize, 188);
        EXPECT_EQ(row.packetsPerDatagram, 7);
        EXPECT_EQ(row.longestUs, 1100);
    }
    Night unknown;
    unknown.stream(6);
    EXPECT_FALSE(unknown.first(Event::Period).transportRate.has_value());
}

TEST(MeasurementLog, ASilenceIsAGapWithItsLength)
{
    Night night;
    night.stream(10);
    night.silence(150);
    night.stream(10, 2);
    EXPECT_EQ(night.count(Event::Absent), 3) << "told again each minute";
    ASSERT_EQ(night.count(Event::Gap), 1);
    EXPECT_NEAR(night.first(Event::Gap).seconds.value(), 150, 0.5);
    EXPECT_EQ(night.first(Event::Gap).note, "absent");
    EXPECT_EQ(night.first(Event::Absent).present, 0);
    // The break's own errors count, the first figures are not shown.
    const auto after = std::find_if(
        night.rows.begin(), night.rows.end(), [](const auto& row) { return row.event == Event::Gap; });
    EXPECT_EQ((after + 1)->event, Event::Period);
    EXPECT_EQ((after + 1)->errors, 2);
    EXPECT_FALSE((after + 1)->frameRate.has_value());
    EXPECT_TRUE((after + 3)->frameRate.has_value());
}

TEST(MeasurementLog, ALostLinkAndALostInstrumentAreGapsOfTheirOwn)
{
    Night night;
    night.stream(10);
    night.lost(Loss::Link, 20);
    night.stream(10);
    night.lost(Loss::Answer, 29, "no answer in time");
    night.lost(Loss::Answer, 1, "the instrument has restarted");
    night.stream(10, 5);
    EXPECT_EQ(night.count(Event::NoLink), 1);
    EXPECT_EQ(night.count(Event::NoAnswer), 1);
    EXPECT_EQ(night.first(Event::NoAnswer).note, "no answer in time");
    EXPECT_FALSE(night.first(Event::NoAnswer).present.has_value()) << "not known";
    std::vector<double> lengths;
    std::vector<std::string> notes;
    for (const LogEntry& row : night.rows) {
        if (row.event != Event::Gap)
            continue;
        lengths.push_back(*row.seconds);
        notes.push_back(row.note);
    }
    EXPECT_EQ(notes, (std::vector<std::string>{"no-link", "no-answer; the instrument has restarted"}));
    ASSERT_EQ(lengths.size(), 2U);
    EXPECT_NEAR(lengths[0], 20, 1.1);
    EXPECT_NEAR(lengths[1], 30, 1.1);
    EXPECT_EQ(night.log().totals().gaps, 2);
    EXPECT_EQ(night.log().totals().missed, 0);
}

TEST(MeasurementLog, AnotherStreamIsNoted)
{
    Night night;
    night.stream(20);
    night.stream(2, 0, rate * 2); // shorter than what counts as a change
    night.stream(20);
    EXPECT_EQ(night.count(Event::Changed), 0);
    night.stream(20, 0, rate / 2);
    ASSERT_EQ(night.count(Event::Changed), 1);
    EXPECT_EQ(night.first(Event::Changed).note,
        "10.0 Mbit/s, 7 × 188 bytes before; 5.00 Mbit/s, 7 × 188 bytes now");
    night.stream(20, 0, rate / 2, 3);
    EXPECT_EQ(night.count(Event::Changed), 2);
    night.silence(10);
    night.stream(20, 0, rate);
    EXPECT_EQ(night.count(Event::Changed), 3);
}

TEST(MeasurementLog, TheSecondInWhichTheStreamChangesIsOfNeither)
{
    Night night;
    night.stream(10, 0, rate);
    night.stream(1, 0, rate * 7 / 10, 5); // the last datagram is of the new stream
    night.stream(10, 0, rate / 2, 5);
    ASSERT_EQ(night.count(Event::Changed), 1);
    EXPECT_EQ(night.first(Event::Changed).note,
        "10.0 Mbit/s, 7 × 188 bytes before; 5.00 Mbit/s, 5 × 188 bytes now");
}

TEST(MeasurementLog, LimitsAreToldInTheRowAndCounted)
{
    LogSettings settings;
    settings.limits.errors = 2;
    settings.limits.delayFactorMs = 1;
    settings.limits.frameRate = rate - 1;
    settings.limits.loss = true;
    EXPECT_EQ(textOf(settings.limits), "max-delay-factor=1 max-errors=2 min-rate=9999999 on-loss");
    Night night(settings);
    night.stream(6, 2);
    EXPECT_EQ(night.first(Event::Period).crossed, "delay-factor");
    const long rows = night.log().totals().rowsWithCrossing;
    night.stream(5, 3, rate / 2);
    EXPECT_EQ(night.rows.back().crossed, "delay-factor errors rate");
    night.silence(130);
    EXPECT_EQ(night.first(Event::Absent).crossed, "loss");
    EXPECT_EQ(night.log().totals().rowsWithCrossing, rows + 6);
    EXPECT_EQ(night.log().totals().crossed.at("loss"), 1);
    EXPECT_EQ(night.log().totals().crossed.at("errors"), 5);
}

TEST(MeasurementLog, ALimitThatIsReachedIsNotCrossed)
{
    LogSettings settings;
    settings.limits.errors = 2;
    settings.limits.delayFactorMs = 2;
    settings.limits.frameRate = rate;
    Night night(settings);
    night.stream(10, 2);
    EXPECT_EQ(night.log().totals().rowsWithCrossing, 0);
}

TEST(MeasurementLog, StartTellsTheLimitsAndEndTheTotals)
{
    LogSettings settings;
    settings.limits.errors = 0;
    Night night(settings);
    night.log().start(night.now(), std::nullopt);
    night.stream(10, 1);
    night.lost(Loss::Link, 10);
    night.log().end(night.now(), "interrupted");
    EXPECT_EQ(night.rows.front().event, Event::Start);
    EXPECT_EQ(night.rows.front().note, "max-errors=0");
    const LogEntry& last = night.rows.back();
    EXPECT_EQ(last.event, Event::End);
    const std::string periods = std::to_string(night.count(Event::Period));
    EXPECT_EQ(last.note,
        "interrupted; " + periods + " periods, " + periods + " errors, 1 gaps, limits crossed in " + periods
            + " rows");
    EXPECT_EQ(night.count(Event::Gap), 1) << "a gap ends with the log";
}

TEST(MeasurementLog, GoingOnInAFileTellsHowLongItWasAway)
{
    Night night;
    LogEntry former;
    former.time = night.now().wall - std::chrono::seconds(90);
    night.log().start(night.now(), former);
    EXPECT_EQ(night.rows.front().event, Event::Resumed);
    EXPECT_DOUBLE_EQ(night.rows.front().seconds.value(), 90);
}

TEST(MeasurementLog, PeriodsThatMayHaveBeenMissedAreNoted)
{
    LogSettings settings;
    Night night(settings);
    night.stream(10);
    MeasurementLog& log = night.log();
    auto late = night.now();
    late.steady += std::chrono::seconds(4);
    log.add({late.steady, late.steady, {true, rate + 5000, 2, 0, 188, 7, 10}}, late.wall);
    ASSERT_EQ(night.count(Event::Missed), 1);
    EXPECT_EQ(night.first(Event::Missed).note.rfind("up to ", 0), 0U);
    EXPECT_GE(log.totals().missed, 3);
}

} // namespace
