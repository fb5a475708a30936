#include "standin.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace tessary::test;

bool answers(const Json& line)
{
    return line.at("answers") == true;
}

/// Seconds from now until the topic is so.
double secondsUntil(
    const PanelOnStandIn& panel, const std::string& topic, const std::function<bool(const Json&)>& satisfied)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(panel.waitFor(topic, satisfied));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(Panel, ShowsTheInstrumentThatIsThere)
{
    PanelOnStandIn panel;
    ASSERT_TRUE(
        panel.waitFor("instrument", [](const Json& value) { return value.at("player") == "running"; }));
    ASSERT_TRUE(panel.waitFor("line", answers)); // told when all the answers are there
    const Json state = panel.get("/api/state");
    EXPECT_EQ(state.at("instrument").at("software"), "1.4");
    EXPECT_EQ(state.at("instrument").at("virtual"), false);
    EXPECT_EQ(state.at("line").at("open"), true);
    EXPECT_EQ(state.at("line").at("error"), nullptr);
    EXPECT_TRUE(panel.waitFor("recorder", [](const Json& value) { return value.at("bytes") == 42; }));
    EXPECT_TRUE(panel.waitFor("line_log", [](const Json& log) { return log.size() > 2; }));
}

TEST(Panel, CarriesACommandLineOut)
{
    PanelOnStandIn panel;
    const Json done = panel.run({"server", "udp://239.0.0.1:1234"});
    EXPECT_EQ(done.at("status"), 0) << done;
    EXPECT_EQ(done.at("result").at("server"), "udp://239.0.0.1:1234");
    EXPECT_EQ(done.at("words"), Json({"server", "udp://239.0.0.1:1234"}));
    EXPECT_FALSE(done.at("remarks").empty()); // of groups that stay joined
    EXPECT_TRUE(panel.instrument().hasHeard("server=UDP 239.0.0.1 1234"));
    EXPECT_TRUE(panel.waitFor(
        "instrument", [](const Json& value) { return value.at("server") == "udp://239.0.0.1:1234"; }));
}

TEST(Panel, TellsWhatWentWrongOfACommand)
{
    PanelOnStandIn panel;
    const Json done = panel.run({"info"});
    const Json error = panel.run({"ping", "10.0.0.1"});
    EXPECT_EQ(error.at("status"), 6) << error;
    EXPECT_EQ(error.at("result").at("error").at("kind"), "nothing");
}

TEST(Panel, OneCommandAfterTheOther)
{
    PanelOnStandIn panel;
    panel.instrument().holdsScan = true;
    ASSERT_EQ(panel.post("/api/run", {{"words", {"scan", "--wait", "0"}}, {"who", "Ada"}})->status, 202);
    ASSERT_TRUE(panel.waitFor("job", [](const Json& job) { return !job.at("running").is_null(); }));
    panel.post("/api/run", {{"words", {"play", "2"}}});
    panel.post("/api/run", {{"words", {"version"}}});
    const Json job = panel.get("/api/state").at("job");
    EXPECT_EQ(job.at("running").at("words"), Json({"scan", "--wait", "0"}));
    EXPECT_EQ(job.at("running").at("who"), "Ada (127.0.0.1)");
    EXPECT_EQ(job.at("waiting").size(), 2U);
    const int play = job.at("waiting").at(0).at("id").get<int>();
    EXPECT_EQ(panel.browser().Delete(("/api/run/" + std::to_string(play)).c_str())->status, 202);
    EXPECT_EQ(panel.get("/api/state").at("job").at("waiting").size(), 1U);
    panel.instrument().holdsScan = false;
    EXPECT_TRUE(
        panel.waitFor("done", [](const Json& done) { return done.at("words") == Json({"version"}); }));
    EXPECT_FALSE(panel.instrument().hasHeard("play=2"));
    EXPECT_EQ(panel.browser().Delete(("/api/run/" + std::to_string(play)).c_str())->status, 404);
}

TEST(Panel, ACommandThatRunsCanBeInterrupted)
{
    PanelOnStandIn panel;
    panel.instrument().holdsScan = true;
    panel.post("/api/run", {{"words", {"--timeout", "1000", "scan"}}});
    Json running;
    ASSERT_TRUE(
        panel.waitFor("job", [&](const Json& job) { return !(running = job.at("running")).is_null(); }));
    ASSERT_TRUE(waitUntil([&] { return panel.instrument().hasHeard("scancur"); }));
    panel.browser().Delete(("/api/run/" + running.at("id").dump()).c_str());
    EXPECT_TRUE(panel.waitFor("done", [](const Json& done) { return done.at("status") == 130; }));
    panel.instrument().holdsScan = false;
    EXPECT_EQ(panel.run({"version"}).at("status"), 0);
}

TEST(Panel, AnInstrumentThatFallsSilentIsShownAndAnswersAgain)
{
    PanelOnStandIn panel;
    ASSERT_TRUE(panel.waitFor("line", &answers));
    panel.instrument().silent = true;
    const double seconds =
        secondsUntil(panel, "line", [](const Json& line) { return line.at("answers") == false; });
    RecordProperty("seconds_until_shown", std::to_string(seconds));
    EXPECT_EQ(panel.get("/api/state").at("line").at("open"), true);
    EXPECT_TRUE(panel.get("/api/state").at("line").at("error").is_string());
    panel.instrument().silent = false;
    EXPECT_TRUE(panel.waitFor("line", &answers));
}

TEST(Panel, ALineThatIsPulledIsShownAtOnce)
{
    PanelOnStandIn panel;
    ASSERT_TRUE(panel.waitFor("line", &answers));
    panel.instrument().hangUp();
    ASSERT_TRUE(panel.waitFor("line", [](const Json& line) { return line.at("open") == false; }));
    EXPECT_TRUE(panel.get("/api/state").at("line").at("remedy").is_string());
    EXPECT_NE(panel.run({"version"}).at("status"), 0);
}

TEST(Panel, ADamagedAnswerIsShownAsSuch)
{
    PanelOnStandIn panel;
    ASSERT_TRUE(panel.waitFor("line", &answers));
    panel.instrument().damaged = true;
    EXPECT_TRUE(
        panel.waitFor("line", [](const Json& line) { return answers(line) && !line.at("error").is_null(); }));
    panel.instrument().damaged = false;
    EXPECT_TRUE(panel.waitFor("line", [](const Json& line) { return line.at("error").is_null(); }));
}

TEST(Panel, AnInstrumentThatStartsAgainIsNoticed)
{
    PanelOnStandIn panel;
    ASSERT_TRUE(panel.waitFor("line", &answers));
    panel.instrument().greet();
    EXPECT_TRUE(panel.waitFor("instrument", [](const Json& value) { return value.at("starts_seen") == 1; }));
    EXPECT_TRUE(panel.waitFor("marks", [](const Json& marks) {
        return !marks.empty() && marks.back().at("text") == "the instrument has started";
    }));
}

TEST(Panel, ARecordingThatWasBegunElsewhereShowsByItsGrowth)
{
    PanelOnStandIn panel;
    const auto records = [](const Json& value) { return value.at("recording") == true; };
    ASSERT_TRUE(panel.waitFor("recorder", [](const Json& value) { return value.at("bytes") == 42; }));
    EXPECT_FALSE(records(panel.get("/api/state").at("recorder")));
    panel.instrument().recordingBytes = 4200;
    EXPECT_TRUE(panel.waitFor("recorder", records));
    EXPECT_TRUE(panel.waitFor("recorder", [&](const Json& value) { return !records(value); }));
}

TEST(Panel, MeasuresAndKeepsTheHistory)
{
    PanelOnStandIn panel;
    ASSERT_TRUE(panel.waitFor("line", &answers));
    ASSERT_EQ(panel.post("/api/measure", {{"on", true}})->status, 202);
    ASSERT_TRUE(panel.waitFor("measurement", [](const Json& value) { return value.at("state") == "valid"; }));
    ASSERT_TRUE(panel.waitFor("arrivals", [](const Json& value) { return !value.is_null(); }));
    EXPECT_TRUE(waitUntil([&] { return panel.get("/api/history").at("rows").size() > 1; }));
    const Json measurement = panel.get("/api/state").at("measurement");
    EXPECT_EQ(measurement.at("figures").at("packet_size"), 188);
    EXPECT_GT(measurement.at("since_start").at("periods"), 0);
    const auto csv = panel.browser().Get("/api/history.csv");
    EXPECT_NE(csv->body.find(",period,"), std::string::npos) << csv->body;
    panel.instrument().linked = false;
    EXPECT_TRUE(panel.waitFor("measurement", [](const Json& value) { return value.at("link") == false; }));
    panel.instrument().linked = true;
    EXPECT_TRUE(panel.waitFor("measurement", [](const Json& value) { return value.at("link") == true; }));
    panel.run({"play", "2", "--wait", "0"});
    EXPECT_EQ(panel.get("/api/state").at("measurement").at("measuring"), false);
}

} // namespace
