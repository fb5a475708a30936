#include "client/periodwatch.h"

#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

using namespace tessary::client;

namespace {

using State = PeriodWatch::State;

PeriodWatch::Clock::time_point at(double seconds)
{
    return PeriodWatch::Clock::time_point()
        + std::chrono::duration_cast<PeriodWatch::Clock::duration>(
            std::chrono::duration<double>(1000 + seconds));
}

/// What the measurement shows from a moment on.
struct Step
{
    double from = 0;
    int bitRate = 0; ///< 0: no stream
    int delayFactor = 1;
    int errors = 0;
};

using Steps = std::vector<Step>;

Measurement shownAt(const Steps& steps, double moment)
{
    Measurement m;
    for (const Step& step : steps) {
        if (step.from <= moment)
            m = {step.bitRate != 0, step.bitRate, step.delayFactor, step.errors, 188, 7, 10};
    }
    return m;
}

/// A reading whose question is sent at `moment`, its answer 20 ms later.
PeriodWatch::Reading readingAt(const Steps& steps, double moment)
{
    return {at(moment), at(moment + 0.02), shownAt(steps, moment + 0.01)};
}

/// The moments from 0 on, one every `interval`, that are before `until`.
std::vector<double> momentsUntil(double until, double interval = 0.2)
{
    std::vector<double> moments;
    for (int i = 0; i * interval < until; ++i)
        moments.push_back(i * interval);
    return moments;
}

PeriodWatch read(const Steps& steps, double until, double interval = 0.2)
{
    PeriodWatch watch;
    for (const double moment : momentsUntil(until, interval))
        watch.add(readingAt(steps, moment));
    return watch;
}

/// When the figures are first shown, and which: bit rate.
std::pair<double, int> firstShown(const Steps& steps)
{
    PeriodWatch watch;
    for (const double moment : momentsUntil(20, 0.1)) {
        const auto reading = readingAt(steps, moment);
        if (watch.add(reading) == State::Valid)
            return {moment, reading.figures.bitRate};
    }
    return {0, 0};
}

TEST(PeriodWatch, WhatIsFromBeforeTheStreamIsNotShown)
{
    // As recorded of a clean stream: the first period ends with the first frame, in the second the counters
    // jump and nothing drains the buffer.
    const Steps steps{{0, 0}, {0.5, 17, 1, 3}, {1.51, 10'000'000, 973, 32}, {2.52, 10'000'007, 1, 0}};
    EXPECT_EQ(firstShown(steps).second, 10'000'007);
    EXPECT_EQ(read(steps, 3).total().errors, 0);
    EXPECT_EQ(read(steps, 3).total().periods, 1);
}

TEST(PeriodWatch, TheStreamOfBeforeIsNotShown)
{
    // Another server was set: the capture goes on with what it has, which counts as present for up to 2 s.
    const Steps other{{0, 8'180'000, 2, 7}, {0.7, 12'000'000, 900, 8}, {1.71, 23'100'000, 700, 30},
        {2.72, 23'100'100, 1, 0}};
    EXPECT_EQ(firstShown(other).second, 23'100'100);
    EXPECT_EQ(read(other, 3).total().errors, 0);
    const Steps late{{0, 8'180'000, 2, 7}, {1.9, 12'000'000, 900, 8}, {2.91, 23'100'000, 700, 30},
        {3.92, 23'100'100, 1, 0}};
    EXPECT_EQ(firstShown(late).second, 23'100'100);
    const Steps gone{{0, 8'180'000, 2, 7}, {1.99, 0}};
    EXPECT_EQ(firstShown(gone).second, 0) << "nothing comes of the stream that is set";
    EXPECT_EQ(read(gone, 3).state(), State::Absent);
}

TEST(PeriodWatch, AStreamWhosePeriodsAllLookAlikeIsShownAsWell)
{
    const Steps running{{0, 5'000'000, 3, 0}};
    EXPECT_NEAR(firstShown(running).first, 5.4, 0.3);
    const Steps coming{{0, 0}, {1, 5'000'000, 3, 0}};
    EXPECT_NEAR(firstShown(coming).first, 3.4, 0.3);
}

/// Periods of `seconds` and a little, of a stream that has been there before the first reading.
Steps periodsOf(int seconds, int errorsEach, std::mt19937& random, int alikePercent)
{
    Steps steps{{-0.4, 10'000'000, 1, errorsEach}};
    while (steps.back().from < seconds) {
        Step next = steps.back();
        next.from += 1 + std::uniform_real_distribution<>(0.00001, 0.003)(random);
        if (static_cast<int>(random() % 100) >= alikePercent)
            next.bitRate = 10'000'000 + (next.bitRate + 1 + static_cast<int>(random() % 900)) % 1000;
        steps.push_back(next);
    }
    return steps;
}

/// How many of these periods count: those from the third on that ends after the first reading.
long counted(const Steps& steps)
{
    return static_cast<long>(steps.size()) - 3;
}

TEST(PeriodWatch, EachPeriodCountsOnceHoweverOftenItIsRead)
{
    for (const double interval : {0.05, 0.1, 0.2, 0.3}) {
        for (const int alike : {0, 2, 10}) {
            std::mt19937 random(5);
            Steps steps = periodsOf(601, 3, random, alike);
            steps.push_back({steps.back().from + 1.001, 9'999'999, 1, 3});
            const PeriodWatch::Total total = read(steps, steps.back().from + 0.5, interval).total();
            EXPECT_TRUE(total.exact()) << interval << ' ' << alike;
            EXPECT_EQ(total.errors, 3 * total.periods) << interval << ' ' << alike;
            // Where one of the first three looks like the one before, the count begins with a later one.
            EXPECT_NEAR(
                static_cast<double>(total.periods), static_cast<double>(counted(steps)), alike == 0 ? 0 : 1)
                << interval << ' ' << alike;
        }
    }
}

TEST(PeriodWatch, TotalsAreThoseOfThePeriodsWhateverTheErrors)
{
    for (unsigned seed = 1; seed <= 50; ++seed) {
        std::mt19937 random(seed);
        Steps steps = periodsOf(61, 0, random, 1);
        for (Step& step : steps)
            step.errors = static_cast<int>(random() % 5);
        steps.push_back({steps.back().from + 1.001, 9'999'999, 1, 0});
        long expected = 0; // from the first valid period on: the third that ends after the first reading
        for (std::size_t i = 3; i < steps.size(); ++i)
            expected += steps[i].errors;
        const PeriodWatch::Total total = read(steps, steps.back().from + 0.5).total();
        EXPECT_TRUE(total.exact()) << seed;
        EXPECT_EQ(total.errors, expected) << seed;
        EXPECT_EQ(total.periods, counted(steps)) << seed;
    }
}

TEST(PeriodWatch, SaysThatPeriodsMayHaveBeenMissed)
{
    std::mt19937 random(3);
    const Steps steps = periodsOf(61, 3, random, 0);
    for (const auto& [pause, most] : {std::pair(0.6, 0L), {2.5, 2L}, {5.0, 5L}}) {
        PeriodWatch watch;
        for (const double moment : momentsUntil(steps.back().from + 0.5)) {
            if (moment < 20.1 || moment > 20.1 + pause)
                watch.add(readingAt(steps, moment));
        }
        const auto total = watch.total();
        EXPECT_LE(total.missed, most) << pause;
        EXPECT_EQ(total.exact(), most == 0) << pause;
        EXPECT_LE(total.periods, counted(steps)) << pause;
        EXPECT_GE(total.periods + total.missed, counted(steps)) << pause;
        EXPECT_EQ(total.errors, 3 * total.periods) << pause;
    }
}

TEST(PeriodWatch, AnAnswerThatTookLongMayHideAPeriod)
{
    const Steps steps{{-0.5, 10'000'001, 1, 1}, {0.51, 10'000'002, 1, 1}, {1.52, 10'000'003, 1, 1},
        {2.53, 10'000'004, 1, 1}, {3.54, 10'000'005, 1, 1}, {4.55, 10'000'006, 1, 1}};
    PeriodWatch watch;
    for (const double moment : momentsUntil(2.8))
        watch.add(readingAt(steps, moment));
    EXPECT_TRUE(watch.total().exact());
    watch.add({at(2.8), at(4.8), shownAt(steps, 4.7)});
    EXPECT_EQ(watch.total().missed, 1);
    EXPECT_EQ(watch.total().periods, 2);
}

TEST(PeriodWatch, PeriodsThatLookAlikeForLongAreSaid)
{
    // 21 that look alike in 20 or 21 s: which it is, nobody knows.
    Steps steps{{-0.5, 10'000'001, 1, 0}, {0.51, 10'000'002, 1, 0}, {1.52, 10'000'003, 1, 0},
        {2.53, 10'000'004, 1, 2}, {33.9, 10'000'005, 1, 0}};
    const auto total = read(steps, 35).total();
    EXPECT_GT(total.unsure, 0);
    EXPECT_NEAR(static_cast<double>(total.errors), 62, static_cast<double>(total.unsure));
    for (Step& step : steps)
        step.errors = 0;
    EXPECT_TRUE(read(steps, 35).total().exact()) << "no errors, whichever it is";
}

TEST(PeriodWatch, ASilenceInTheMiddleCountsItsErrorsAndHidesTheFigures)
{
    const Steps steps{{0, 0}, {1, 20, 1, 40}, {2.01, 10'000'000, 970, 30}, {3.02, 10'000'001, 1, 1},
        {4.03, 10'000'002, 1, 1}, {6.4, 0}, {9, 2'000'000, 4000, 5}, {10.01, 10'000'010, 300, 2},
        {11.02, 10'000'011, 1, 0}};
    EXPECT_EQ(read(steps, 4.3).total().errors, 2);
    EXPECT_EQ(read(steps, 8).state(), State::Absent);
    EXPECT_EQ(read(steps, 9.5).state(), State::Settling);
    EXPECT_EQ(read(steps, 10.5).state(), State::Settling);
    const PeriodWatch watch = read(steps, 12);
    EXPECT_EQ(watch.state(), State::Valid);
    EXPECT_EQ(watch.total().errors, 9);
    EXPECT_EQ(watch.total().periods, 5);
    EXPECT_GT(watch.total().unsure, 0) << "the last one before the silence may have been two that look alike";
}

TEST(PeriodWatch, TheTotalTakesNothingBack)
{
    // Long alike, and then one with a pause in it.
    const Steps steps{{0, 0}, {1, 20, 1, 40}, {2.01, 10'000'000, 970, 30}, {3.02, 10'000'001, 1, 3},
        {15, 3'900'000, 1500, 9}, {16.01, 10'000'002, 1, 0}};
    PeriodWatch watch;
    PeriodWatch::Total before;
    for (const double moment : momentsUntil(17)) {
        watch.add(readingAt(steps, moment));
        EXPECT_GE(watch.total().periods, before.periods) << moment;
        EXPECT_GE(watch.total().errors, before.errors) << moment;
        before = watch.total();
    }
}

TEST(PeriodWatch, APeriodWithAPauseIsOne)
{
    const Steps steps{{0, 0}, {1, 20, 1, 40}, {2.01, 10'000'000, 970, 30}, {3.02, 10'000'001, 1, 3},
        {5.6, 3'900'000, 1500, 9}, {6.61, 10'000'002, 1, 0}};
    const auto total = read(steps, 7).total();
    EXPECT_EQ(total.errors, 12);
    EXPECT_EQ(total.periods, 3);
}

} // namespace
