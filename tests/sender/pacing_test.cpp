#include <gtest/gtest.h>

#include "error_schedule.h"
#include "pacer.h"
#include "report.h"
#include "stream_datagrams.h"

namespace tessary::sender {
namespace {

constexpr std::uint64_t DatagramBits = std::uint64_t{7} * 188 * 8;
constexpr std::int64_t DatagramNs = 10'528'000; // at 1 Mbit/s

TEST(TimeAtRate, FollowsFromTheBitsBefore)
{
    EXPECT_EQ(timeAtRate(0, 1e6), 0);
    EXPECT_EQ(timeAtRate(DatagramBits, 1e6), 10'528'000);
    EXPECT_EQ(timeAtRate(1'000'000, 1e6), 1'000'000'000);
}

TEST(TimeAtRate, DoesNotDriftOverADay)
{
    const std::uint64_t bitsOfADay = std::uint64_t{200'000'000} * 86'400;
    EXPECT_EQ(timeAtRate(bitsOfADay, 200e6), std::int64_t{86'400} * 1'000'000'000);
}

TEST(Pacer, DueTimesCountFromTheStart)
{
    Pacer pacer;
    pacer.start(5'000);
    EXPECT_EQ(pacer.dueNs(0), 5'000);
    EXPECT_EQ(pacer.dueNs(DatagramNs), 5'000 + DatagramNs);
}

TEST(Pacer, ALateDatagramDoesNotMoveTheNextOne)
{
    Pacer pacer;
    pacer.start(0);
    EXPECT_EQ(pacer.sent(DatagramNs, DatagramNs + 3'000'000), 3'000'000);
    EXPECT_EQ(pacer.dueNs(2 * DatagramNs), 2 * DatagramNs);
    EXPECT_EQ(pacer.movedNs(), 0);
}

TEST(Pacer, AnEarlyDatagramHasNoLag)
{
    Pacer pacer;
    pacer.start(0);
    EXPECT_EQ(pacer.sent(DatagramNs, DatagramNs - 500'000), 0);
}

TEST(Pacer, ALagBeyondTheLimitMovesTheSchedule)
{
    Pacer pacer(50'000'000);
    pacer.start(0);
    EXPECT_EQ(pacer.sent(0, 60'000'000), 60'000'000);
    EXPECT_EQ(pacer.movedNs(), 60'000'000);
    EXPECT_EQ(pacer.dueNs(DatagramNs), 60'000'000 + DatagramNs);
}

TEST(ErrorSchedule, ErrorsStandInTheMiddleOfTheirShares)
{
    const ErrorSchedule schedule(2);
    EXPECT_EQ(schedule.dueUntil(0), 0U);
    EXPECT_EQ(schedule.dueUntil(249'999'999), 0U);
    EXPECT_EQ(schedule.dueUntil(250'000'000), 1U);
    EXPECT_EQ(schedule.dueUntil(749'999'999), 1U);
    EXPECT_EQ(schedule.dueUntil(750'000'000), 2U);
}

TEST(ErrorSchedule, WholeSecondsHoldExactlyTheRate)
{
    for (const unsigned rate : {1U, 7U, 10U, 999U}) {
        const ErrorSchedule schedule(rate);
        for (std::int64_t second = 1; second < 4; ++second)
            EXPECT_EQ(schedule.dueUntil(second * 1'000'000'000), rate * static_cast<std::uint64_t>(second));
    }
}

TEST(ErrorSchedule, ErrorsKeepToTheirTime)
{
    const ErrorSchedule schedule(2, 3'000'000'000, 5'000'000'000);
    EXPECT_EQ(schedule.dueUntil(3'249'999'999), 0U);
    EXPECT_EQ(schedule.dueUntil(3'250'000'000), 1U);
    EXPECT_EQ(schedule.dueUntil(8'000'000'000), 10U);
    EXPECT_EQ(schedule.dueUntil(900'000'000'000), 10U);
}

TEST(ErrorSchedule, NoRateMeansNoErrors)
{
    EXPECT_EQ(ErrorSchedule(0).dueUntil(std::int64_t{1} << 60), 0U);
}

TEST(Report, CountsFramesWithTheirHeaders)
{
    Report report(42, 1e6);
    report.sent(7, 1316, 0, 0, true);
    report.sent(7, 1316, 10'528'000, 100, true);
    EXPECT_EQ(report.datagrams(), 2U);
    EXPECT_EQ(report.frameBits(), 2U * 1358U * 8U);
    EXPECT_NEAR(report.seconds(), 0.021056, 1e-9);
    EXPECT_NEAR(report.tsBitRate(), 1e6, 1e-3);
    EXPECT_NEAR(report.frameBitRate(), 1e6 * 1358 / 1316, 1e-3);
}

TEST(Report, NothingSentGivesZeros)
{
    const Report report(42, 1e6);
    EXPECT_EQ(report.tsBitRate(), 0);
    EXPECT_EQ(report.frameBitRate(), 0);
    EXPECT_NE(report.json().find("\"datagrams\": 0,"), std::string::npos);
}

TEST(Report, TheLongestBurstCountsDatagramsWithoutASleepBetween)
{
    Report report(42, 1e6);
    for (const bool waited : {true, false, false, true, false})
        report.sent(7, 1316, 0, 0, waited);
    EXPECT_NE(report.json().find("\"longest_burst\": 3,"), std::string::npos) << report.json();
}

} // namespace
} // namespace tessary::sender
