#include "client/panel/gate.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::panel;

Asking get(const std::string& path)
{
    Asking asking;
    asking.method = "GET";
    asking.path = path;
    asking.host = "127.0.0.1:8080";
    return asking;
}

Asking post(const std::string& path, std::uint64_t bytes)
{
    Asking asking = get(path);
    asking.method = "POST";
    asking.contentType = "application/json";
    asking.contentLength = bytes;
    return asking;
}

int statusOf(const Gate& gate, const Asking& asking)
{
    const auto refusal = gate.check(asking);
    return refusal.has_value() ? refusal->status : 200;
}

Gate withToken()
{
    GateSettings settings;
    settings.local = false;
    settings.token = "correct-horse";
    return Gate(settings);
}

TEST(PanelGate, LetsThePanelsOwnPageIn)
{
    const Gate gate{GateSettings{}};
    EXPECT_EQ(statusOf(gate, get("/api/state")), 200);
    Asking own = post("/api/run", 20);
    own.origin = "http://127.0.0.1:8080";
    own.fetchSite = "same-origin";
    EXPECT_EQ(statusOf(gate, own), 200);
}

TEST(PanelGate, RefusesAnotherOrigin)
{
    const Gate gate{GateSettings{}};
    for (const char* origin : {"http://evil.example", "null", "http://127.0.0.1:8081", "https://127.0.0.1"}) {
        Asking foreign = post("/api/run", 20);
        foreign.origin = origin;
        EXPECT_EQ(statusOf(gate, foreign), 403) << origin;
    }
    Asking picture = get("/api/display"); // an image of a foreign page has no origin
    picture.fetchSite = "cross-site";
    EXPECT_EQ(statusOf(gate, picture), 403);
}

TEST(PanelGate, ALinkFromElsewhereOpensThePage)
{
    Asking link = get("/");
    link.fetchSite = "cross-site";
    EXPECT_EQ(statusOf(Gate{GateSettings{}}, link), 200);
}

TEST(PanelGate, RefusesANameThatWasMadeToPointHere)
{
    Asking rebound = get("/api/state");
    rebound.host = "evil.example:8080";
    EXPECT_EQ(statusOf(Gate{GateSettings{}}, rebound), 403);
    rebound.host = "localhost:8080";
    EXPECT_EQ(statusOf(Gate{GateSettings{}}, rebound), 200);
}

TEST(PanelGate, RefusesForms)
{
    Asking form = post("/api/run", 20);
    form.contentType = "application/x-www-form-urlencoded";
    EXPECT_EQ(statusOf(Gate{GateSettings{}}, form), 415);
}

TEST(PanelGate, LimitsWhatIsSent)
{
    const Gate gate{GateSettings{}};
    EXPECT_EQ(statusOf(gate, post("/api/run", 64 * 1024)), 200);
    EXPECT_EQ(statusOf(gate, post("/api/run", 64 * 1024 + 1)), 413);
    EXPECT_EQ(statusOf(gate, post("/api/upload", 64 * 1024 * 1024)), 200);
    EXPECT_EQ(statusOf(gate, post("/api/upload", 64 * 1024 * 1024 + 1)), 413);
    Asking endless = post("/api/run", 0);
    endless.contentLength.reset();
    EXPECT_EQ(statusOf(gate, endless), 411);
}

TEST(PanelGate, RefusesWhatIsPacked)
{
    Asking packed = post("/api/run", 20);
    packed.contentEncoding = "gzip";
    EXPECT_EQ(statusOf(Gate{GateSettings{}}, packed), 415);
}

TEST(PanelGate, AsksForTheToken)
{
    const Gate gate = withToken();
    EXPECT_EQ(statusOf(gate, get("/")), 200);
    for (const char* path : {"/api/state", "/api/events", "/metrics", "/api/history.csv"})
        EXPECT_EQ(statusOf(gate, get(path)), 401) << path;
    Asking wrong = get("/api/state");
    for (const char* token : {"Bearer correct-horsf", "Bearer correct-hors", "Bearer ", "correct-horse",
             "Bearer correct-horsecorrect-horse"}) {
        wrong.authorization = token;
        EXPECT_EQ(statusOf(gate, wrong), 401) << token;
    }
}

TEST(PanelGate, TakesTheTokenAsHeaderAndAsCookie)
{
    const Gate gate = withToken();
    Asking asking = get("/api/state");
    asking.authorization = "Bearer correct-horse";
    EXPECT_EQ(statusOf(gate, asking), 200);
    asking.authorization.clear();
    asking.cookie = "other=1; tessary-panel=correct-horse; more=2";
    EXPECT_EQ(statusOf(gate, asking), 200);
    asking.cookie = "x-tessary-panel=correct-horse";
    EXPECT_EQ(statusOf(gate, asking), 401);
}

} // namespace
