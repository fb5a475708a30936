// What anybody may send to the panel's port: nothing but refusals come back, others are not held up, and nothing of it reaches
// the instrument.
#include "standin.h"
#include "wire.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <sys/resource.h>
#include <thread>

namespace {

using namespace tessary::test;
using std::chrono::milliseconds;
using Dice = std::mt19937;

constexpr const char* tokenText = "correct-horse";

/// A panel that asks for a token, and the one who has it.
class GuardedPanel
{
public:
    GuardedPanel()
        : m_panel(options())
    {
    }
    ~GuardedPanel() { ::unlink(file().c_str()); }
    GuardedPanel(const GuardedPanel&) = delete;
    GuardedPanel& operator=(const GuardedPanel&) = delete;

    int port() { return portOf(m_panel.panel()); }
    StandIn& instrument() { return m_panel.instrument(); }
    Json state() const
    {
        Json told;
        EXPECT_TRUE(waitUntil([&] { // it may have too many connections
            const auto result =
                m_panel.browser().Get("/api/state", {{"Authorization", std::string("Bearer ") + tokenText}});
            if (result && result->status == 200)
                told = Json::parse(result->body);
            return told.is_object();
        }));
        return told;
    }
    /// All that does not change by itself.
    Json lasting() const
    {
        Json all = state();
        all.erase("line_log");
        return all;
    }

private:
    static std::string file() { return "/tmp/tessary-panel-siege." + std::to_string(::getpid()); }
    static tessary::panel::Options options()
    {
        std::ofstream(file()) << tokenText << '\n';
        tessary::panel::Options options;
        options.tokenFile = file();
        options.allowed = {true, true};
        options.limits.silence = milliseconds(200); // what never ends is waited for only so long
        return options;
    }

    PanelOnStandIn m_panel;
};

std::set<std::string> everHeard(const StandIn& instrument)
{
    const auto all = instrument.heard();
    return {all.begin(), all.end()};
}

std::size_t below(Dice& dice, std::size_t most)
{
    return std::uniform_int_distribution<std::size_t>(0, most - 1)(dice);
}

std::string randomBytes(Dice& dice)
{
    std::string bytes(below(dice, 4000), '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(below(dice, 256));
    return bytes;
}

std::string posted(const std::string& path, const std::string& body, const std::string& more = {})
{
    return "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n" + more
        + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// Requests as they are meant, without the token.
const std::vector<std::string>& wellFormed()
{
    static const std::string host = " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    static const std::vector<std::string> all{"GET /api/state" + host + "\r\n",
        "GET /api/events" + host + "\r\n",
        "GET /api/history?from=2020-01-01T00:00:00Z&to=1e9&points=-1" + host + "\r\n",
        "GET /?token=wrong-horse" + host + "\r\n", "GET /app/%2e%2e/%2e%2e/etc/passwd" + host + "\r\n",
        "GET /app/main.js" + host + "Range: bytes=0-0,0-0,0-0,1-,-5\r\n\r\n",
        "GET /metrics" + host + "Authorization: Bearer x\r\nCookie: tessary-panel=y; a=b\r\n\r\n",
        "DELETE /api/run/1" + host + "\r\n",
        "DELETE /api/desk/senders/1" + host + "Content-Length: 3\r\n\r\nabc",
        posted("/api/run", R"({"words":["command","reboot"]})"),
        posted("/api/run?wait=1", R"({"words":["play","2"],"who":"x"})", "Origin: http://evil.example\r\n"),
        posted("/api/measure", R"({"on":true})", "Expect: 100-continue\r\n"),
        posted("/api/upload?name=a.deb", std::string(3000, 'x')),
        posted("/api/run", "\x1f\x8b\x08", "Content-Encoding: gzip\r\n"),
        "POST /api/run" + host + "Transfer-Encoding: chunked\r\n\r\n5\r\n{\"wor\r\nffffffffffffffff\r\n",
        "POST /api/run" + host + "Content-Length: 99999999999999999999\r\n\r\n{}",
        "POST /api/run" + host
            + "Content-Type: multipart/form-data; boundary=x\r\nContent-Length: 9\r\n\r\n--x\r\n\r\n--",
        "PUT /api/run" + host + "Content-Length: 0\r\n\r\n", "OPTIONS *" + host + "\r\n",
        "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"};
    return all;
}

/// One of them with some bytes changed, left out, or come twice.
std::string damaged(Dice& dice)
{
    std::string text = wellFormed()[below(dice, wellFormed().size())];
    for (std::size_t changes = below(dice, 6); changes > 0 && !text.empty(); --changes) {
        const std::size_t at = below(dice, text.size());
        const std::size_t length = std::min(text.size() - at, below(dice, 30) + 1);
        switch (below(dice, 5)) {
        case 0:
            text[at] = static_cast<char>(below(dice, 256));
            break;
        case 1:
            text.erase(at, length);
            break;
        case 2:
            text.insert(at, text.substr(at, length));
            break;
        case 3:
            text.insert(at, randomBytes(dice).substr(0, length));
            break;
        default:
            text.insert(at, std::string(below(dice, 3000), text[at]));
            break;
        }
    }
    return text;
}

/// Nothing, a refusal, or a file of the page, which is everybody's.
bool tellsNothing(const std::string& answer)
{
    if (answer.empty())
        return true;
    std::string told = answer;
    for (const std::string goOn = "HTTP/1.1 100 Continue\r\n\r\n"; told.rfind(goOn, 0) == 0;)
        told.erase(0, goOn.size());
    if (told.rfind("HTTP/1.1 4", 0) == 0 || told.rfind("HTTP/1.1 503", 0) == 0 || told.empty())
        return true;
    const bool file = told.find("Content-Type: text/html") != std::string::npos
        || told.find("Content-Type: text/javascript") != std::string::npos
        || told.find("Content-Type: text/css") != std::string::npos
        || told.find("Content-Type: image/svg+xml") != std::string::npos;
    return told.rfind("HTTP/1.1 200", 0) == 0 && file;
}

/// Sends until then; what was answered and should not have been.
void besiege(
    int port, unsigned seed, std::chrono::steady_clock::time_point end, std::vector<std::string>& wrong)
{
    Dice dice(seed);
    while (std::chrono::steady_clock::now() < end && wrong.empty()) {
        const Wire wire(port);
        const std::string sent = below(dice, 4) == 0 ? randomBytes(dice) : damaged(dice);
        wire.send(sent);
        const std::string answer = wire.receiveAll();
        if (!tellsNothing(answer))
            wrong.push_back(sent + "\n-- was answered --\n" + answer.substr(0, 400));
    }
}

int siegeSeconds()
{
    const char* given = std::getenv("TESSARY_PANEL_SIEGE_SECONDS");
    return given != nullptr ? std::atoi(given) : 5;
}

TEST(PanelSiege, RandomBytesAreRefusedAndChangeNothing)
{
    GuardedPanel panel;
    ASSERT_TRUE(waitUntil([&] { return panel.state().at("instrument").at("player") == "running"; }));
    ASSERT_TRUE(waitUntil([&] { return panel.state().at("recorder").at("bytes") == 42; }));
    ASSERT_TRUE(waitUntil([&] { return panel.state().at("line").at("answers") == true; }));
    const Json before = panel.lasting();
    const auto asked = everHeard(panel.instrument());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(siegeSeconds());
    std::vector<std::thread> besiegers;
    std::vector<std::vector<std::string>> wrong(4);
    for (unsigned i = 0; i < wrong.size(); ++i)
        besiegers.emplace_back([&, i] { besiege(panel.port(), i, end, wrong[i]); });
    for (std::thread& each : besiegers)
        each.join();
    for (const auto& answers : wrong)
        EXPECT_EQ(answers, std::vector<std::string>());
    EXPECT_EQ(panel.lasting(), before);
    EXPECT_EQ(everHeard(panel.instrument()), asked);
}

/// Enough files for both ends of a thousand connections.
void allowManyFiles()
{
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 8192);
    ::setrlimit(RLIMIT_NOFILE, &files);
}

TEST(PanelSiege, AThousandConnectionsTakeNothingFromThoseWhoLook)
{
    allowManyFiles();
    tessary::panel::Options options;
    options.limits.silence = options.limits.whole =
        std::chrono::minutes(5); // the first stay until the last one comes
    PanelOnStandIn panel(options);
    ASSERT_TRUE(panel.waitFor("line", [](const Json& line) { return line.at("answers") == true; }));
    const Wire looks(portOf(panel.panel()));
    looks.send("GET /api/events HTTP/1.1\r\nHost: " + panel.panel().address() + "\r\n\r\n");
    ASSERT_FALSE(looks.receiveUntil("event: line\n").empty());
    std::vector<std::unique_ptr<Wire>> idle;
    for (int i = 0; i < 1000; ++i) {
        idle.push_back(std::make_unique<Wire>(portOf(panel.panel())));
        idle.back()->send("GET /api/st");
    }
    EXPECT_NE(idle.back()->receiveAll().find("HTTP/1.1 503"), std::string::npos);
    panel.instrument().greet();
    EXPECT_FALSE(looks.receiveUntil("\"starts_seen\":1").empty());
    idle.clear();
    EXPECT_TRUE(waitUntil([&] { return panel.get("/api/state").is_object(); }));
}

TEST(PanelSiege, ARequestThatComesByteByByteIsEnded)
{
    tessary::panel::Options options;
    options.limits.whole = milliseconds(300);
    PanelOnStandIn panel(options);
    const std::string host = "Host: " + panel.panel().address() + "\r\n";
    for (const std::string& begin : {"GET /api/state HTTP/1.1\r\n" + host + "X: ",
             "POST /api/run HTTP/1.1\r\n" + host
                 + "Content-Type: application/json\r\nContent-Length: 9000\r\n\r\n"}) {
        const Wire slow(portOf(panel.panel()));
        slow.send(begin);
        std::atomic<bool> ended{false};
        std::thread drip([&] {
            while (!ended && slow.send("x"))
                std::this_thread::sleep_for(milliseconds(20));
        });
        const std::string answer = slow.receiveAll();
        ended = true;
        drip.join();
        EXPECT_EQ(answer.rfind("HTTP/1.1 4", 0), 0U) << begin << answer; // 408, and 400 of half a body
    }
    EXPECT_EQ(panel.browser().Get("/api/state")->status, 200);
}

TEST(PanelSiege, ManySlowRequestsHoldNobodyUp)
{
    PanelOnStandIn panel;
    std::vector<std::unique_ptr<Wire>> slow;
    for (int i = 0; i < 100; ++i) {
        slow.push_back(std::make_unique<Wire>(portOf(panel.panel())));
        slow.back()->send("GET /api/st");
    }
    EXPECT_EQ(panel.browser().Get("/api/state")->status, 200);
}

TEST(PanelSiege, AHeadWithoutEndIsRefused)
{
    PanelOnStandIn panel;
    const Wire wire(portOf(panel.panel()));
    wire.send("GET / HTTP/1.1\r\n");
    const std::string field = "X-Field: " + std::string(1000, 'x') + "\r\n";
    for (int i = 0; i < 100 && wire.send(field); ++i) { }
    EXPECT_EQ(wire.receiveAll().rfind("HTTP/1.1 431", 0), 0U);
}

TEST(PanelSiege, NoPartOfAnAnswerIsSentTwice)
{
    PanelOnStandIn panel;
    const Wire wire(portOf(panel.panel()));
    std::string ranges = "0-";
    for (int i = 0; i < 2000; ++i)
        ranges += ",0-";
    wire.send("GET /app/main.js HTTP/1.1\r\nHost: " + panel.panel().address() + "\r\nRANGE: bytes=" + ranges
        + "\r\n\r\n");
    const std::string answer = wire.receiveAll();
    EXPECT_EQ(answer.rfind("HTTP/1.1 200", 0), 0U) << answer.substr(0, 200);
    EXPECT_LT(answer.size(), 100000U);
}

TEST(PanelSiege, WhatIsPackedIsNotUnpacked)
{
    PanelOnStandIn panel;
    const Wire wire(portOf(panel.panel()));
    wire.send("POST /api/run HTTP/1.1\r\nHost: " + panel.panel().address()
        + "\r\nContent-Type: application/json\r\nContent-Encoding: gzip\r\nContent-Length: "
          "3\r\n\r\n\x1f\x8b\x08");
    EXPECT_EQ(wire.receiveAll().rfind("HTTP/1.1 415", 0), 0U);
}

TEST(PanelSiege, TheBytesOfARefusedUploadDoNotTakeTheRefusalAway)
{
    PanelOnStandIn panel;
    const Wire wire(portOf(panel.panel()));
    wire.send("POST /api/upload?name=a.deb HTTP/1.1\r\nHost: " + panel.panel().address()
        + "\r\nContent-Type: application/octet-stream\r\nContent-Length: 999999999\r\n\r\n");
    for (int i = 0; i < 20 && wire.send(std::string(50000, 'x')); ++i) { }
    EXPECT_EQ(wire.receiveAll().rfind("HTTP/1.1 413", 0), 0U);
}

} // namespace
