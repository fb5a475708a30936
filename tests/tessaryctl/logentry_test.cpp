#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/logentry.h"
#include "client/tessaryctl/logfile.h"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <gtest/gtest.h>
#include <random>

using namespace tessary::ctl;

namespace {

LogEntry fullEntry()
{
    LogEntry entry;
    entry.time = wallTimeOf(1774745999.25);
    entry.server = "udp://239.0.0.1:1234";
    std::int64_t value = 1;
    for (const LogNumber& number : logNumbers())
        entry.*(number.value) = value++;
    entry.seconds = 2.5;
    entry.crossed = "errors rate";
    entry.note = "a \"note\", with commas";
    return entry;
}

void expectSame(const LogEntry& a, const LogEntry& b)
{
    EXPECT_EQ(isoTime(a.time), isoTime(b.time));
    EXPECT_EQ(a.event, b.event);
    EXPECT_EQ(a.server, b.server);
    for (const LogNumber& number : logNumbers())
        EXPECT_EQ(a.*(number.value), b.*(number.value)) << number.name;
    EXPECT_EQ(a.seconds, b.seconds);
    EXPECT_EQ(a.crossed, b.crossed);
    EXPECT_EQ(a.note, b.note);
}

TEST(LogEntry, ReadsWhatItWrites)
{
    for (const LogFormat format : {LogFormat::Csv, LogFormat::JsonLines}) {
        LogEntry bare;
        bare.time = wallTimeOf(1774745999);
        bare.event = LogEntry::Event::NoAnswer;
        for (const LogEntry& entry : {fullEntry(), bare}) {
            const std::string line = lineOf(entry, format);
            const LogReader reader(format == LogFormat::Csv ? headerOf(format) : line, "it");
            EXPECT_EQ(reader.format(), format);
            const auto read = reader.read(line);
            ASSERT_TRUE(read.has_value()) << line;
            expectSame(*read, entry);
        }
    }
}

TEST(LogEntry, ColumnsMayStandInAnyOrder)
{
    const LogReader reader("event,mine,continuity_errors,time", "it");
    const auto entry = reader.read("period,x,7,2026-03-29T01:59:59Z");
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(entry->errors, 7);
    EXPECT_EQ(secondsOf(entry->time), 1774749599);
}

TEST(LogEntry, DamagedLinesAreNoEntries)
{
    for (const LogFormat format : {LogFormat::Csv, LogFormat::JsonLines}) {
        const std::string line = lineOf(fullEntry(), format);
        const LogReader reader(format == LogFormat::Csv ? headerOf(format) : line, "it");
        EXPECT_FALSE(reader.read(headerOf(format)).has_value());
        const std::size_t lastField = format == LogFormat::Csv ? line.rfind(",\"") : line.size() - 1;
        for (std::size_t length = 0; length <= lastField; ++length)
            EXPECT_FALSE(reader.read(line.substr(0, length)).has_value()) << line.substr(0, length);
    }
    EXPECT_THROW(LogReader("name,size", "it"), Failure);
    EXPECT_THROW(LogReader("{}", "it"), Failure);
}

TEST(LogEntry, TimesHaveTheZone)
{
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    ::tzset();
    EXPECT_EQ(isoTime(wallTimeOf(1774745999.25)), "2026-03-29T01:59:59.250+01:00");
    EXPECT_EQ(isoTime(wallTimeOf(1774746000)), "2026-03-29T03:00:00.000+02:00");
    ::setenv("TZ", "NST3:30", 1);
    ::tzset();
    EXPECT_EQ(isoTime(wallTimeOf(1774745999)), "2026-03-28T21:29:59.000-03:30");
    EXPECT_EQ(secondsOf(parseIsoTime("2026-03-28T21:29:59.000-03:30").value()), 1774745999);
    ::unsetenv("TZ");
    ::tzset();
    for (const char* wrong : {"", "2026-03-28", "2026-03-28T21:29:59", "2026-03-28T21:29:59.000+1"})
        EXPECT_FALSE(parseIsoTime(wrong).has_value()) << wrong;
}

class LogFileTest : public testing::Test
{
protected:
    void TearDown() override { std::remove(m_path.c_str()); }

    void write(LogFormat format = LogFormat::Csv, const std::string& note = "x") const
    {
        LogEntry entry = fullEntry();
        entry.note = note;
        LogFile(m_path, format).write(entry);
    }

    std::vector<std::string> lines() const
    {
        std::ifstream file(m_path);
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line);)
            all.push_back(line);
        return all;
    }

    const std::string m_path = testing::TempDir() + "log-" + std::to_string(std::random_device{}());
};

TEST_F(LogFileTest, GoesOnBehindWhatIsThere)
{
    write(LogFormat::Csv, "first");
    write(LogFormat::Csv, "second");
    ASSERT_EQ(lines().size(), 3U);
    EXPECT_EQ(lines()[0], headerOf(LogFormat::Csv));
    EXPECT_EQ(LogFile(m_path, LogFormat::Csv).former()->note, "second");
}

TEST_F(LogFileTest, BeginsANewLineBehindHalfAOne)
{
    write(LogFormat::Csv, "whole");
    std::ofstream(m_path, std::ios::app) << "2026-03-29T01:59:59.250+01:00,per";
    write(LogFormat::Csv, "next");
    ASSERT_EQ(lines().size(), 4U);
    const LogReader reader(lines()[0], m_path);
    EXPECT_FALSE(reader.read(lines()[2]).has_value());
    EXPECT_EQ(reader.read(lines()[3]).value().note, "next");
}

TEST_F(LogFileTest, RefusesOtherFilesAndOtherFormats)
{
    write(LogFormat::JsonLines);
    EXPECT_THROW(write(LogFormat::Csv), Failure);
    std::ofstream(m_path) << "my letter\n";
    EXPECT_THROW(write(LogFormat::Csv), Failure);
    EXPECT_EQ(lines().size(), 1U);
    EXPECT_THROW(LogFile("/nosuch/log.csv", LogFormat::Csv), Failure);
}

TEST_F(LogFileTest, OneProgramAtATimeHasTheFile)
{
    const LogFile file(m_path, LogFormat::Csv);
    EXPECT_THROW(LogFile(m_path, LogFormat::Csv), Failure);
}

TEST(LogFormatOfName, GoesByTheSuffix)
{
    EXPECT_EQ(formatOfName("night.csv"), LogFormat::Csv);
    EXPECT_EQ(formatOfName("night.jsonl"), LogFormat::JsonLines);
    EXPECT_FALSE(formatOfName("night").has_value());
}

} // namespace
