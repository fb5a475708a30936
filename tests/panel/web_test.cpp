#include "standin.h"
#include "wire.h"

#include <fstream>
#include <gtest/gtest.h>

namespace {

using namespace tessary::test;
using httplib::Headers;

TEST(PanelWeb, SendsEventsToEveryBrowser)
{
    PanelOnStandIn panel;
    ASSERT_TRUE(panel.waitFor("line", [](const Json& line) { return line.at("answers") == true; }));
    std::vector<std::unique_ptr<Wire>> browsers;
    for (int i = 0; i < 40; ++i) {
        browsers.push_back(std::make_unique<Wire>(portOf(panel.panel())));
        browsers.back()->send("GET /api/events HTTP/1.1\r\nHost: " + panel.panel().address() + "\r\n\r\n");
    }
    for (const auto& browser : browsers)
        EXPECT_NE(browser->receiveUntil("event: line\n").find("text/event-stream"), std::string::npos);
    panel.run({"server", "udp://239.0.0.7:1234"});
    for (const auto& browser : browsers)
        EXPECT_FALSE(browser->receiveUntil("239.0.0.7").empty());
}

TEST(PanelWeb, ABrowserHearsThatThePanelIsThere)
{
    PanelOnStandIn panel;
    const Wire browser(portOf(panel.panel()));
    browser.send("GET /api/events HTTP/1.1\r\nHost: " + panel.panel().address() + "\r\n\r\n");
    EXPECT_FALSE(browser.receiveUntil("event: heartbeat\ndata: {\"time\":").empty());
}

TEST(PanelWeb, ADeletionNeedsNoBody)
{
    PanelOnStandIn panel;
    const Wire browser(portOf(panel.panel())); // browsers send none, and tell no length of it
    browser.send("DELETE /api/run/77 HTTP/1.1\r\nHost: " + panel.panel().address() + "\r\n\r\n");
    EXPECT_NE(browser.receiveAll().find("this command has ended"), std::string::npos);
}

TEST(PanelWeb, AllowsNothingFromElsewhere)
{
    const PanelOnStandIn panel;
    const auto result = panel.browser().Get("/api/state");
    const std::string policy = result->get_header_value("Content-Security-Policy");
    EXPECT_EQ(policy.rfind("default-src 'none'", 0), 0U);
    EXPECT_EQ(policy.find("unsafe"), std::string::npos);
    EXPECT_EQ(policy.find("http"), std::string::npos);
    EXPECT_EQ(result->get_header_value("X-Content-Type-Options"), "nosniff");
}

TEST(PanelWeb, RefusesForeignOrigins)
{
    const PanelOnStandIn panel;
    const auto result = panel.browser().Post("/api/run", Headers{{"Origin", "http://evil.example"}},
        R"({"words":["version"]})", "application/json");
    EXPECT_EQ(result->status, 403);
    EXPECT_TRUE(Json::parse(result->body).at("error").contains("remedy"));
    EXPECT_TRUE(panel.get("/api/state").at("job").at("waiting").empty());
}

TEST(PanelWeb, RefusesWhatIsNotAllowedAndWhatIsNone)
{
    const PanelOnStandIn panel;
    const auto statusOf = [&](const std::string& body) {
        return panel.browser().Post("/api/run", body, "application/json")->status;
    };
    EXPECT_EQ(statusOf(R"({"words":["command","reboot"]})"), 403);
    EXPECT_EQ(statusOf(R"({"words":["scna"]})"), 400);
    EXPECT_EQ(statusOf(R"({"words":"scan"})"), 400);
    EXPECT_EQ(statusOf(R"({"words":[1]})"), 400);
    EXPECT_EQ(statusOf("{"), 400);
    EXPECT_EQ(statusOf("[]"), 400);
    EXPECT_EQ(panel.browser().Post("/api/measure", R"({"on":1})", "application/json")->status, 400);
    EXPECT_EQ(panel.browser().Get("/api/nothing")->status, 404);
}

TEST(PanelWeb, NoPathLeadsOutOfThePagesFolder)
{
    PanelOnStandIn panel;
    for (const char* path : {"/app/../../../../../etc/passwd",
             "/app/%2e%2e/%2e%2e/%2e%2e/%2e%2e/%2e%2e/etc/passwd", "/app/..%2f..%2f..%2f..%2f..%2fetc/passwd",
             "/lib/../../../../etc/passwd", "/app//etc/passwd", "/app/%00/etc/passwd"}) {
        Wire wire(portOf(panel.panel()));
        wire.send("GET " + std::string(path) + " HTTP/1.1\r\nHost: " + panel.panel().address() + "\r\n\r\n");
        const std::string answer = wire.receiveAll();
        EXPECT_EQ(answer.find("root:"), std::string::npos) << path;
        EXPECT_EQ(answer.find("200 OK"), std::string::npos) << path;
    }
}

TEST(PanelWeb, ABodyThatIsTooLargeIsNotRead)
{
    PanelOnStandIn panel;
    Wire wire(portOf(panel.panel()));
    wire.send("POST /api/run HTTP/1.1\r\nHost: " + panel.panel().address()
        + "\r\nContent-Type: application/json\r\nContent-Length: 1000000000\r\n\r\n");
    EXPECT_NE(wire.receiveAll().find("413"), std::string::npos); // without a byte of it
}

TEST(PanelWeb, TakesNoPackagesUnlessThatIsAllowed)
{
    const PanelOnStandIn panel;
    EXPECT_EQ(
        panel.browser().Post("/api/upload?name=a.deb", "bytes", "application/octet-stream")->status, 403);
}

TEST(PanelWeb, TakesPackagesWhereThatIsAllowed)
{
    tessary::panel::Options options;
    options.allowed.update = true;
    options.uploadLimit = 1;
    const PanelOnStandIn panel(options);
    const auto upload = [&](const std::string& name, std::size_t size) {
        return panel.browser().Post(
            ("/api/upload?name=" + name).c_str(), std::string(size, 'x'), "application/octet-stream");
    };
    const auto taken = upload("a_1.0.deb", 1000);
    ASSERT_EQ(taken->status, 200) << taken->body;
    const std::string file = Json::parse(taken->body).at("file").get<std::string>();
    std::ifstream read(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(read), {}), std::string(1000, 'x'));
    EXPECT_EQ(upload("..%2fb.deb", 10)->status, 400);
    EXPECT_EQ(upload("b.txt", 10)->status, 400);
    EXPECT_EQ(upload(".deb", 10)->status, 400);
    for (const char* name : {"b.deb", "c.deb", "d.deb", "e.deb", "f.deb"})
        upload(name, 10);
    EXPECT_FALSE(std::ifstream(file).is_open()); // only the last ones are kept
    EXPECT_EQ(upload("c.deb", 1024 * 1024 + 1)->status, 413);
    const Json done =
        panel.run({"update", Json::parse(upload("z.deb", 10)->body).at("file").get<std::string>()});
    EXPECT_EQ(done.at("status"), 9) << done; // ten bytes are no package
    EXPECT_EQ(panel.get("/api/state").at("job").at("running"), nullptr);
}

TEST(PanelWeb, NeedsItsTokenWhereItHasOne)
{
    const std::string file = "/tmp/tessary-panel-token." + std::to_string(::getpid());
    std::ofstream(file) << "correct-horse\n";
    tessary::panel::Options options;
    options.tokenFile = file;
    const PanelOnStandIn panel(options);
    EXPECT_EQ(panel.browser().Get("/api/state")->status, 401);
    EXPECT_EQ(panel.browser().Get("/?token=wrong-horse")->status, 401);
    EXPECT_EQ(panel.browser().Get("/api/state", {{"Authorization", "Bearer correct-horse"}})->status, 200);
    const auto page = panel.browser().Get("/?token=correct-horse");
    EXPECT_EQ(page->status, 303);
    const std::string cookie = page->get_header_value("Set-Cookie");
    EXPECT_NE(cookie.find("HttpOnly; SameSite=Strict"), std::string::npos);
    EXPECT_EQ(
        panel.browser().Get("/api/state", {{"Cookie", cookie.substr(0, cookie.find(';'))}})->status, 200);
    ::unlink(file.c_str());
}

} // namespace
