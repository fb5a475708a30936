#include "client/panel/history.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::panel;
using tessary::ctl::LogEntry;

LogEntry period(double second, std::int64_t rate, std::int64_t errors = 0)
{
    LogEntry entry;
    entry.time = tessary::ctl::wallTimeOf(second);
    entry.present = 1;
    entry.frameRate = rate;
    entry.delayFactorMs = 7;
    entry.errors = errors;
    entry.medianUs = 1000;
    return entry;
}

TEST(PanelHistory, GivesRowsBack)
{
    History history(":memory:");
    history.add(period(1000, 5000000, 2));
    const Json told = history.between(0, 2000, 100);
    EXPECT_EQ(told.at("columns"),
        Json({"time", "present", "bit_rate", "delay_factor_ms", "continuity_errors", "iat_median_us",
            "iat_p95_us", "iat_p99_us", "iat_longest_us"}));
    EXPECT_EQ(
        told.at("rows"), Json::array({Json({1000.0, 1, 5000000, 7, 2, 1000, nullptr, nullptr, nullptr})}));
}

TEST(PanelHistory, KeepsPeaksWhenItThins)
{
    History history(":memory:");
    for (int second = 0; second < 3600; ++second)
        history.add(period(second, second == 1234 ? 9000000 : 5000000, second == 2345 ? 40 : 0));
    const Json rows = history.between(0, 4000, 100).at("rows");
    EXPECT_LE(rows.size(), 104U);
    EXPECT_GE(rows.size(), 90U);
    std::int64_t rate = 0;
    std::int64_t errors = 0;
    double before = -1;
    for (const Json& row : rows) {
        rate = std::max(rate, row.at(2).get<std::int64_t>());
        errors = std::max(errors, row.at(4).get<std::int64_t>());
        EXPECT_GE(row.at(0).get<double>(), before);
        before = row.at(0).get<double>();
    }
    EXPECT_EQ(rate, 9000000);
    EXPECT_EQ(errors, 40);
}

TEST(PanelHistory, ForgetsWhatIsOlderThanADay)
{
    History history(":memory:");
    history.add(period(0, 1));
    for (int i = 0; i < 300; ++i)
        history.add(period(100000 + i, 2));
    EXPECT_EQ(history.between(0, 200000, 1000).at("rows").size(), 300U);
}

TEST(PanelHistory, TheCsvIsAMeasurementLog)
{
    History history(":memory:");
    LogEntry entry = period(1000, 5000000);
    entry.note = "with, comma";
    history.add(entry);
    const std::string csv = history.csv(0, 2000);
    const std::size_t end = csv.find('\n');
    const tessary::ctl::LogReader reader(csv.substr(0, end), "history");
    const auto read = reader.read(csv.substr(end + 1, csv.size() - end - 2));
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->frameRate, 5000000);
    EXPECT_EQ(read->note, "with, comma");
    EXPECT_EQ(read->event, LogEntry::Event::Period);
}

} // namespace
