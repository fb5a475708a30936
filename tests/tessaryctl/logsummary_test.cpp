#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/logsummary.h"
#include "client/tessaryctl/reportpage.h"
#include "client/tessaryctl/timechart.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <random>

using namespace tessary::ctl;

namespace {

using Event = LogEntry::Event;
using Kind = Span::Kind;

constexpr double begin = 1'774'750'020; // a whole minute

LogEntry at(double second, Event event = Event::Period)
{
    LogEntry entry;
    entry.time = wallTimeOf(begin + second);
    entry.event = event;
    entry.server = "rtp://239.0.0.1:5000";
    return entry;
}

LogEntry period(double second, std::int64_t errors = 0, std::int64_t delayFactor = 1)
{
    LogEntry entry = at(second);
    entry.present = 1;
    entry.frameRate = 10'000'000;
    entry.errors = errors;
    entry.delayFactorMs = delayFactor;
    entry.medianUs = 1000;
    entry.percentile95Us = 1100;
    entry.percentile99Us = 1300;
    entry.longestUs = 2000;
    return entry;
}

LogEntry gap(double second, double length)
{
    LogEntry entry = at(second, Event::Gap);
    entry.seconds = length;
    return entry;
}

MeasurementRecord recordOf(const std::vector<LogEntry>& entries)
{
    MeasurementRecord log;
    log.entries = entries;
    return log;
}

/// A day, with a fault here and there.
MeasurementRecord dayLog()
{
    std::mt19937 random(5);
    MeasurementRecord log;
    log.entries.push_back(at(0, Event::Start));
    for (int second = 1; second < 86400; ++second) {
        LogEntry entry = period(second, random() % 3000 == 0 ? 2 : 0, 1 + static_cast<int>(random() % 3));
        entry.frameRate = 10'000'000 + static_cast<int>(random() % 100'000);
        entry.transportRate = *entry.frameRate * 96 / 100;
        entry.longestUs = 1500 + static_cast<int>(random() % 40000);
        log.entries.push_back(entry);
    }
    log.entries[40000].delayFactorMs = 777;
    log.entries.push_back(at(86400, Event::End));
    return log;
}

TEST(LogSummary, SumsUpPeriods)
{
    const LogSummary s = summaryOf(
        recordOf({at(0, Event::Start), period(1), period(2, 3, 40), period(3, 2), at(4, Event::End)}));
    EXPECT_EQ(s.periods, 3);
    EXPECT_EQ(s.errors, 5);
    EXPECT_EQ(s.periodsWithErrors, 2);
    EXPECT_EQ(s.delayFactor.most, 40);
    EXPECT_EQ(s.delayFactor.mean, 14);
    EXPECT_EQ(s.frameRate.least, 10'000'000);
    EXPECT_EQ(s.transportRate.count, 0);
    EXPECT_EQ(s.availability.value(), 1);
    EXPECT_EQ(s.present, 4);
    EXPECT_TRUE(s.ended);
    EXPECT_EQ(s.servers, std::vector<std::string>{"rtp://239.0.0.1:5000"});
}

TEST(LogSummary, GapsAreTimeWithoutFiguresByTheirCause)
{
    LogEntry silent = at(33, Event::NoAnswer);
    silent.seconds = 3; // it was last heard of before
    const LogSummary s = summaryOf(recordOf({at(0, Event::Start), period(10), at(10, Event::Absent),
        gap(20, 10), period(22), at(25, Event::NoLink), gap(26, 1), period(29), silent, gap(40, 10),
        period(44), period(45), at(100, Event::Resumed), period(103), at(104, Event::Absent)}));
    ASSERT_EQ(s.spans.size(), 4U);
    EXPECT_EQ(s.seconds.at(Kind::Absent), 10);
    EXPECT_EQ(s.seconds.at(Kind::NoLink), 1);
    EXPECT_EQ(s.seconds.at(Kind::NoAnswer), 10);
    EXPECT_EQ(s.seconds.at(Kind::NotLogged), 55);
    EXPECT_EQ(s.present, 104 - 76);
    EXPECT_DOUBLE_EQ(s.availability.value(), 28.0 / 38.0) << "of the time in which the instrument could tell";
    EXPECT_FALSE(s.ended);
}

TEST(LogSummary, AnAbsenceToldAgainIsOne)
{
    const LogSummary s = summaryOf(recordOf({period(0), at(1, Event::Absent), at(61, Event::Absent),
        at(121, Event::Absent), gap(131, 130), period(133), at(134, Event::End)}));
    ASSERT_EQ(s.spans.size(), 1U);
    EXPECT_EQ(s.seconds.at(Kind::Absent), 130);
}

TEST(LogSummary, TheWorstMinuteIsTheOneWithoutStreamThenTheOneWithErrors)
{
    const LogSummary s = summaryOf(recordOf({period(1), period(70, 9), period(130, 3, 100), period(190),
        at(250, Event::Absent), gap(252, 2), period(310, 3), at(311, Event::End)}));
    ASSERT_EQ(s.worstMinutes.size(), 4U);
    EXPECT_EQ(s.worstMinutes[0].from, begin + 240);
    EXPECT_EQ(s.worstMinutes[0].lost, 2);
    EXPECT_EQ(s.worstMinutes[1].errors, 9);
    EXPECT_EQ(s.worstMinutes[2].delayFactorMs, 100);
    EXPECT_EQ(s.worstMinutes[3].from, begin + 300);
}

TEST(LogSummary, RowsThatCrossALimitWithinAMinuteAreOneCrossing)
{
    std::vector<LogEntry> entries{at(0, Event::Start), period(1, 5), period(2, 7), period(3), period(80, 2)};
    entries[0].note = "max-delay-factor=50 max-errors=0 on-loss";
    for (const int i : {1, 2, 4})
        entries[static_cast<std::size_t>(i)].crossed = "errors";
    entries.push_back(at(81, Event::Absent));
    entries.back().crossed = "loss";
    entries.push_back(gap(85, 4));
    entries.push_back(period(86));
    entries.push_back(at(87, Event::NoAnswer));
    entries.push_back(gap(97, 10));
    entries.back().note = "no-answer; no answer in time";
    const LogSummary s = summaryOf(recordOf(entries));
    ASSERT_EQ(s.crossings.size(), 3U);
    EXPECT_EQ(s.crossings[0].rows, 2);
    EXPECT_EQ(s.crossings[0].worst, 7);
    EXPECT_EQ(s.crossings[0].to, begin + 2);
    EXPECT_EQ(s.crossings[1].worst, 2);
    EXPECT_EQ(s.crossings[2].limit, "loss");
    EXPECT_EQ(s.crossings[2].worst, 4);
    EXPECT_EQ(s.crossings[2].to, begin + 85) << "not the later end of a gap without answer";
    EXPECT_EQ(s.limits.at("max-delay-factor"), "50");
    EXPECT_EQ(s.limits.count("on-loss"), 1U);
}

TEST(TimeChart, KeepsTheExtremesOfEachColumn)
{
    const std::vector<Span> none;
    const TimeAxis axis{begin, begin + 86400, none};
    TimeChart chart{"it", {{"blue", {}}}, false, false, std::nullopt, [](double) { return "x"; }};
    for (int second = 0; second < 86400; ++second)
        chart.series[0].points.push_back({begin + second, 50.0});
    const std::string flat = svgOf(chart, axis);
    chart.series[0].points[43210].value = 100; // one second of a day
    const std::string spike = svgOf(chart, axis);
    EXPECT_NE(flat, spike);
    EXPECT_NE(spike.find(" 21.1 "), std::string::npos) << "the top: 10 + 150 * (1 - 1 / 1.08)";
    EXPECT_LT(spike.size(), 40000U);
}

TEST(TimeChart, ALineHasABreakWhereFiguresAreMissing)
{
    const auto segments = [](const std::vector<Span>& spans, double jump) {
        TimeChart chart{"it", {{"blue", {}}}, false, false, std::nullopt, [](double) { return "x"; }};
        for (int i = 0; i < 100; ++i)
            chart.series[0].points.push_back({begin + i + (i < 50 ? 0 : jump), 5});
        const std::string svg = svgOf(chart, {begin, begin + 100 + jump, spans});
        const std::string path = svg.substr(svg.find(" d=\""));
        return std::count(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(path.find("/>")), 'M');
    };
    EXPECT_EQ(segments({}, 0), 1);
    EXPECT_EQ(segments({}, 2), 1);
    EXPECT_EQ(segments({}, 20), 2);
    EXPECT_EQ(segments({{Kind::Absent, begin + 49.5, begin + 50.5}}, 2), 2);
}

/// The page's marks of elements are in their order, each closed.
void expectWellFormed(const std::string& html)
{
    std::vector<std::string> open;
    for (std::size_t mark = html.find('<'); mark != std::string::npos; mark = html.find('<', mark + 1)) {
        const std::size_t end = html.find('>', mark);
        ASSERT_NE(end, std::string::npos);
        const std::string words = html.substr(mark + 1, end - mark - 1);
        const std::string name = words.substr(0, words.find(' '));
        if (name.front() == '!' || name == "meta" || words.back() == '/')
            continue;
        if (name.front() != '/') {
            open.push_back(name);
            continue;
        }
        ASSERT_FALSE(open.empty());
        ASSERT_EQ(name.substr(1), open.back());
        open.pop_back();
    }
    EXPECT_TRUE(open.empty());
}

TEST(ReportPage, TheEndOfAGapIsToldInWords)
{
    LogEntry answered = gap(12, 5);
    answered.note = "no-answer; the instrument has restarted";
    LogEntry back = gap(20, 4);
    back.note = "absent";
    const auto log =
        recordOf({at(0, Event::Start), at(7, Event::NoAnswer), answered, at(16, Event::Absent), back});
    const std::string page = reportPage(log, summaryOf(log), "night.csv");
    for (const char* text :
        {"instrument answers again</td><td>the instrument has restarted", "stream is back</td><td></td>"})
        EXPECT_NE(page.find(text), std::string::npos) << text;
}

TEST(ReportPage, ADayFitsIntoAMegabyteAndNeedsNothingElse)
{
    const MeasurementRecord log = dayLog();
    const std::string page = reportPage(log, summaryOf(log), "night.csv");
    EXPECT_LT(page.size(), 1'000'000U);
    expectWellFormed(page);
    for (const char* outside : {"http:", "https:", "url(", "<script", "<link", "<img", "@import"})
        EXPECT_EQ(page.find(outside), std::string::npos) << outside;
    EXPECT_NE(page.find("777 ms"), std::string::npos) << "one second of the day";
}

TEST(ReportPage, TextOfTheStreamIsNoMarkup)
{
    MeasurementRecord log =
        recordOf({at(0, Event::Start), period(1), at(2, Event::Changed), at(3, Event::End)});
    log.entries[2].note = "<script>&\"";
    const std::string page = reportPage(log, summaryOf(log), "<b>.csv");
    expectWellFormed(page);
    EXPECT_NE(page.find("&lt;script&gt;&amp;&quot;"), std::string::npos);
    EXPECT_NE(page.find("&lt;b&gt;.csv"), std::string::npos);
}

TEST(ReportPage, ALogWithoutAnyPeriodIsAPageAsWell)
{
    for (const auto& entries :
        {std::vector{at(0, Event::Start)}, std::vector{at(0, Event::Start), at(1, Event::Absent)}}) {
        const MeasurementRecord log = recordOf(entries);
        const std::string page = reportPage(log, summaryOf(log), "x");
        expectWellFormed(page);
        EXPECT_EQ(page.find("nan"), std::string::npos);
        EXPECT_NE(page.find("No second of a stream was measured"), std::string::npos)
            << "without an absence of a length";
    }
}

TEST(ReadLog, TakesBothFormatsAndLeavesOutDamagedLines)
{
    const std::string path = testing::TempDir() + "record-" + std::to_string(std::random_device{}());
    for (const LogFormat format : {LogFormat::Csv, LogFormat::JsonLines}) {
        std::ofstream file(path, std::ios::trunc);
        if (format == LogFormat::Csv)
            file << headerOf(format) << '\n';
        file << lineOf(period(1, 2), format) << '\n'
             << lineOf(period(2), format).substr(0, 40) << '\n'
             << lineOf(period(3), format) << '\n'
             << lineOf(period(2), format) << '\n'; // the clock was set back
        file.close();
        const MeasurementRecord log = readLog(path);
        ASSERT_EQ(log.entries.size(), 2U);
        EXPECT_EQ(log.entries[0].errors, 2);
        EXPECT_EQ(log.damagedLines, 2);
    }
    std::ofstream(path, std::ios::trunc) << headerOf(LogFormat::Csv) << '\n';
    EXPECT_THROW(readLog(path), Failure);
    std::ofstream(path, std::ios::trunc) << "";
    EXPECT_THROW(readLog(path), Failure);
    std::remove(path.c_str());
    EXPECT_THROW(readLog(path), Failure);
}

} // namespace
