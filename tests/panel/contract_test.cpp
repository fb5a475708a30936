#include "contract.h"
#include "standin.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::test;

TEST(PanelContract, WhatIsSentIsWhatTheDescriptionSays)
{
    PanelOnStandIn panel;
    expectValid("State", panel.get("/api/state")); // before anything is known
    ASSERT_TRUE(
        panel.waitFor("instrument", [](const Json& value) { return value.at("player") == "running"; }));
    panel.run({"server", "udp://239.0.0.1:1234"});
    panel.post("/api/measure", {{"on", true}});
    ASSERT_TRUE(panel.waitFor("arrivals", [](const Json& value) { return !value.is_null(); }));
    ASSERT_TRUE(waitUntil([&] { return !panel.get("/api/history").at("rows").empty(); }));
    panel.instrument().holdsScan = true;
    panel.post("/api/run", {{"words", {"scan", "--wait", "0"}}, {"who", "Ada"}});
    panel.post("/api/run", {{"words", {"version"}}});
    ASSERT_TRUE(panel.waitFor("job", [](const Json& job) { return !job.at("running").is_null(); }));
    expectValid("State", panel.get("/api/state"));
    expectValid("History", panel.get("/api/history"));
    panel.instrument().holdsScan = false;
    expectValid("Done", panel.run({"version"}));
    panel.instrument().linked = false;
    expectValid("Done", panel.run({"scan"}));
    panel.instrument().silent = true;
    ASSERT_TRUE(panel.waitFor("line", [](const Json& line) { return line.at("answers") == false; }));
    expectValid("State", panel.get("/api/state"));
    panel.instrument().silent = false;
}

TEST(PanelContract, RefusalsSayCauseAndRemedy)
{
    const PanelOnStandIn panel;
    for (const char* path : {"/api/nothing", "/api/desk", "/api/display", "/api/sound", "/api/run/1"})
        expectValid("Error", panel.get(path));
    for (const char* body : {R"({"words":["command","x"]})", R"({"words":["x"]})", "{", "[]"}) {
        const auto result = panel.browser().Post("/api/run", body, "application/json");
        expectValid("Error", Json::parse(result->body));
    }
}

TEST(PanelContract, TheDescriptionNamesOnlyWhatIsThere)
{
    const PanelOnStandIn panel;
    for (const auto& [path, methods] : apiDescription().at("paths").items()) {
        const bool endless = path == "/api/events";
        if (endless || !methods.contains("get") || path.find('{') != std::string::npos)
            continue;
        const auto result = panel.browser().Get(path.c_str());
        EXPECT_EQ(result->body.find("there is no GET"), std::string::npos) << path;
    }
}

} // namespace
