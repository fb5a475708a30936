#include "contract.h"

#include <httplib.h>
// Qt's words come last: other headers know them as names.
#include "instrument.h"

#include <gtest/gtest.h>
#include <QFile>

namespace {

using namespace tessary::test;
using Json = nlohmann::ordered_json;

/// The panel as it ships, on a virtual instrument with its hardware, and a browser.
class PanelOnInstrument : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_instrument = std::make_unique<Instrument>(QStringList{"--card", "64M"});
        qputenv("XDG_STATE_HOME", s_instrument->path("state").toLocal8Bit());
        s_instrument->daemon("restart");
        s_panel = std::make_unique<GuardedProcess>();
        const QString steering = TESSARY_SOURCE_DIR "/bench/instrument";
        const QString sender = TESSARY_BUILD_DIR "/bench/sender/tessary-send";
        s_panel->start(TESSARY_PANEL,
            {"--port", s_instrument->path("controller"), "--listen", "127.0.0.1:0", "--streams",
                TESSARY_STREAMS, "--instrument", steering, "--sender", sender});
        ASSERT_TRUE(waitUntil([] { return s_panel->waitForReadyRead(20); }));
        const QByteArray line = s_panel->readAllStandardOutput().trimmed();
        s_port = line.mid(line.lastIndexOf(':') + 1).toInt();
        ASSERT_GT(s_port, 0) << line.constData();
        ASSERT_TRUE(
            waitFor("instrument", [](const Json& value) { return value.at("interface").is_object(); }));
    }

    static void TearDownTestSuite()
    {
        s_panel->endGracefully(patienceMilliseconds);
        EXPECT_EQ(s_panel->exitCode(), 0);
        s_panel.reset();
        s_instrument.reset();
    }

    static httplib::Client browser()
    {
        httplib::Client client("127.0.0.1", s_port);
        client.set_read_timeout(120);
        return client;
    }

    static Json get(const std::string& path)
    {
        const auto result = browser().Get(path.c_str());
        return result ? Json::parse(result->body, nullptr, false) : Json();
    }

    static Json post(const std::string& path, const Json& body)
    {
        const auto result = browser().Post(path.c_str(), body.dump(), "application/json");
        return result ? Json::parse(result->body, nullptr, false) : Json();
    }

    static Json run(const std::vector<std::string>& words)
    {
        Json done = post("/api/run?wait=1", {{"words", words}});
        expectValid("Done", done);
        return done;
    }

    static bool waitFor(const std::string& topic, const std::function<bool(const Json&)>& satisfied)
    {
        return waitUntil([&] {
            const Json state = get("/api/state");
            return state.contains(topic) && satisfied(state.at(topic));
        });
    }

    /// So many bytes of what has no end.
    static std::string readSome(
        const std::string& path, std::size_t size, httplib::Headers* headers = nullptr)
    {
        std::string all;
        browser().Get(
            path.c_str(),
            [&](const httplib::Response& response) {
                if (headers != nullptr)
                    *headers = response.headers;
                return true;
            },
            [&](const char* data, std::size_t length) {
                all.append(data, length);
                return all.size() < size;
            });
        return all;
    }

    static Instrument& instrument() { return *s_instrument; }

private:
    static std::unique_ptr<Instrument> s_instrument;
    static std::unique_ptr<GuardedProcess> s_panel;
    static int s_port;
};

std::unique_ptr<Instrument> PanelOnInstrument::s_instrument;
std::unique_ptr<GuardedProcess> PanelOnInstrument::s_panel;
int PanelOnInstrument::s_port = 0;

const Json television{{"file", "demo.ts"}, {"url", "udp://239.0.0.1:1234"}};

TEST_F(PanelOnInstrument, SendsScansPlaysAndShowsWhatIsToBeSeenAndHeard)
{
    const Json sender = post("/api/desk/senders", television);
    ASSERT_TRUE(sender.contains("id")) << sender;
    const Json scan = run({"scan", "udp://239.0.0.1:1234"});
    ASSERT_EQ(scan.at("status"), 0) << scan;
    EXPECT_EQ(scan.at("result").at("services").size(), 3U);
    ASSERT_EQ(run({"play", "2"}).at("status"), 0);
    const std::string pictures = readSome("/api/display", 400000);
    EXPECT_EQ(pictures.rfind("--picture\r\nContent-Type: image/jpeg", 0), 0U);
    EXPECT_NE(pictures.find("--picture", 20), std::string::npos);
    expectValid("Display", get("/api/display.json"));
    EXPECT_EQ(get("/api/display.json").at("width"), 720);
    httplib::Headers headers;
    const std::string sound = readSome("/api/sound", 100000, &headers);
    EXPECT_EQ(headers.find("X-Rate")->second, "48000");
    EXPECT_NE(sound.find_first_not_of('\0'), std::string::npos);
    for (const char* table : {"sdt", "nit", "pmt"}) {
        const Json tree = get(std::string("/api/table/") + table);
        expectValid("Table", tree);
        EXPECT_GT(tree.at("decoded").size(), 0U) << table;
    }
    EXPECT_EQ(get("/api/display.json").at("video"), "MPEG-2");
    expectValid("Desk", get("/api/desk"));
    EXPECT_EQ(get("/api/desk").at("card").at("bytes"), 64 << 20);
    expectValid("State", get("/api/state"));
    EXPECT_FALSE(get("/api/state").at("commands").empty());
    const Json desk = Json::parse(browser().Delete("/api/desk/senders/" + sender.at("id").dump())->body);
    EXPECT_TRUE(desk.at("senders").empty());
}

TEST_F(PanelOnInstrument, AMeasurementLivesThroughLinkAndDaemon)
{
    const Json sender = post("/api/desk/senders", television);
    run({"server", "udp://239.0.0.1:1234"});
    post("/api/measure", {{"on", true}});
    const auto valid = [](const Json& value) { return value.at("state") == "valid"; };
    ASSERT_TRUE(waitFor("measurement", valid));
    post("/api/desk/link", {{"up", false}});
    EXPECT_TRUE(waitFor("measurement", [](const Json& value) { return value.at("link") == false; }));
    EXPECT_TRUE(waitFor(
        "instrument", [](const Json& value) { return value.at("interface").at("link_detected") == false; }));
    post("/api/desk/link", {{"up", true}});
    EXPECT_TRUE(waitFor("measurement", valid));
    const int starts = get("/api/state").at("instrument").at("starts_seen").get<int>();
    post("/api/desk/daemon", {{"action", "kill"}});
    EXPECT_TRUE(waitFor("line", [](const Json& value) { return value.at("answers") == false; }));
    expectValid("State", get("/api/state"));
    post("/api/desk/daemon", {{"action", "start"}});
    EXPECT_TRUE(waitFor("line", [](const Json& value) { return value.at("answers") == true; }));
    EXPECT_TRUE(waitFor(
        "instrument", [&](const Json& value) { return value.at("starts_seen").get<int>() > starts; }));
    EXPECT_TRUE(waitFor("measurement", valid)); // goes on by itself: the server is that of the start
    const auto csv = browser().Get("/api/history.csv");
    QFile log(instrument().path("history.csv"));
    ASSERT_TRUE(log.open(QIODevice::WriteOnly));
    log.write(csv->body.data(), static_cast<qint64>(csv->body.size()));
    log.close();
    const CommandResult report = runCommand(TESSARYCTL, {"report", log.fileName()});
    EXPECT_TRUE(report.ok()) << report.errors.constData();
    const auto metrics = browser().Get("/metrics");
    EXPECT_NE(metrics->body.find("\ntessary_stream_present 1\n"), std::string::npos) << metrics->body;
    EXPECT_EQ(metrics->body.substr(metrics->body.size() - 6), "# EOF\n");
    browser().Delete("/api/desk/senders/" + sender.at("id").dump());
}

TEST_F(PanelOnInstrument, TheDeskTurnsWhatStandsAround)
{
    const Json slow = post("/api/desk/knobs", {{"export-rate", 100000}});
    EXPECT_EQ(slow.at("knobs").at("export-rate"), "100000") << slow;
    EXPECT_TRUE(post("/api/desk/knobs", {{"no-such-knob", 1}}).contains("error"));
    EXPECT_TRUE(post("/api/desk/knobs", {{"../x", 1}}).contains("error"));
    const Json behaving = post("/api/desk/behave", {{"program", "ethtool"}, {"delay", 0.5}, {"times", 1}});
    EXPECT_EQ(behaving.at("behaviours").at(0).at("program"), "ethtool") << behaving;
    EXPECT_TRUE(post("/api/desk/behave", {{"program", "ethtool"}, {"real", true}}).at("behaviours").empty());
    Json dab = get("/api/desk").at("dab");
    dab["answer_after_s"] = 3;
    EXPECT_EQ(post("/api/desk/dab", dab).at("dab").at("answer_after_s"), 3);
    for (const Json& wish : {Json{{"file", "../../etc/passwd"}, {"url", "udp://239.0.0.1:1234"}},
             Json{{"file", "demo.ts"}, {"url", "udp://239.0.0.1:1234;reboot"}}, Json{{"file", "demo.ts"}}})
        EXPECT_TRUE(post("/api/desk/senders", wish).contains("error")) << wish;
    EXPECT_TRUE(post("/api/desk/daemon", {{"action", "pid"}}).contains("error"));
    post("/api/desk/knobs", {{"export-rate", -1}});
}

TEST_F(PanelOnInstrument, TheToolSaysWhoHasThePort)
{
    const CommandResult tool = runCommand(TESSARYCTL, {"--port", instrument().path("controller"), "version"});
    EXPECT_EQ(tool.status, 3);
    EXPECT_TRUE(tool.errors.contains("in use by another program (tessary-panel, PID "))
        << tool.errors.constData();
}

} // namespace
