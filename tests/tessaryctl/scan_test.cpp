#include "kit/oracle.h"
#include "kit/sections.h"
#include "tablestream.h"
#include "toolsuite.h"

#include <algorithm>

namespace {

using namespace tessary::test;

// What the tool says of streams that lack something, made of tables alone.

class ToolTables : public ToolSuite
{
protected:
    void SetUp() override { restartDaemon(); }

    static RunningStream sendTables(
        const std::vector<CarriedSection>& sections, const QStringList& options = {"--bitrate", "1M"})
    {
        const QString file = instrument().path("tables.ts");
        writeTableStream(file, sections);
        return sendStream(file, options, 10 * 188);
    }

    static QJsonArray programNumbers(const QJsonObject& scan)
    {
        QJsonArray numbers;
        for (const QJsonValue& program : elements(scan["programs"]))
            numbers.append(program["program"]);
        return numbers;
    }
};

const Bytes conax = makeDescriptor(0x09, {0x0B, 0x00, 0xE1, 0x02});

/// A PMT with one elementary stream of this type on the PID after the PMT's.
CarriedSection programMap(int number, int pid, std::uint8_t streamType, const Bytes& programDescriptors = {})
{
    const auto low = [](int value) { return static_cast<std::uint8_t>(value & 0xFF); };
    const auto upper = [](int value) { return static_cast<std::uint8_t>(0xE0 | value >> 8); };
    const Bytes stream{streamType, upper(pid + 1), low(pid + 1)};
    const Bytes body =
        join({{upper(pid + 1), low(pid + 1)}, makeLoop(programDescriptors), stream, makeLoop({})});
    return {pid, makeSection(0x02, static_cast<std::uint16_t>(number), body)};
}

CarriedSection associations(const std::vector<std::pair<int, int>>& programs)
{
    Bytes body;
    for (const auto& [number, pid] : programs) {
        const Bytes entry{static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number),
            static_cast<std::uint8_t>(0xE0 | pid >> 8), static_cast<std::uint8_t>(pid)};
        body.insert(body.end(), entry.begin(), entry.end());
    }
    return {0, makeSection(0x00, 7, body)};
}

CarriedSection serviceList(int service, bool scrambled, const std::string& name)
{
    Bytes loop = makeLoop(serviceDescriptor(0x19, "Desk", name));
    loop[0] = static_cast<std::uint8_t>((loop[0] & 0x0FU) | (scrambled ? 0x90U : 0x80U));
    const Bytes head{
        0x20, 0x01, 0xFF, static_cast<std::uint8_t>(service >> 8), static_cast<std::uint8_t>(service), 0xFC};
    return {0x11, makeSection(0x42, 7, join({head, loop}))};
}

TEST_F(ToolTables, ProgramsAreFoundWithoutServiceListAndNetwork)
{
    // The PMT of the second never comes; the others are found all the same.
    const RunningStream stream = sendTables({associations({{5, 0x100}, {6, 0x110}, {700, 0x120}}),
        programMap(5, 0x100, 0x1B), programMap(700, 0x120, 0x0F)});
    const QJsonObject scan = toolJson({"scan", "udp://239.0.0.1:1234", "--wait", "2"});
    EXPECT_EQ(programNumbers(scan), (QJsonArray{5, 700})) << QJsonDocument(scan).toJson().constData();
    EXPECT_TRUE(scan["services"].toArray().isEmpty());
    EXPECT_TRUE(scan["network"].isNull());
    EXPECT_TRUE(scan["programs"][0]["picture"].toBool());
    EXPECT_FALSE(scan["programs"][0]["sound"].toBool());
    const CommandResult text = tool({"scan", "--wait", "2"});
    EXPECT_TRUE(text.output.contains("No SDT: the stream names no services.\n")) << text.output.constData();
    EXPECT_TRUE(text.output.contains("Program 5  (no sound)\n")) << text.output.constData();
    EXPECT_TRUE(text.output.contains("Program 700  (no picture)\n")) << text.output.constData();
    EXPECT_TRUE(text.errors.contains("no SDT within 2 s")) << text.errors.constData();
    EXPECT_TRUE(tool({"play", "700", "--wait", "1"}).ok());
}

TEST_F(ToolTables, ScrambledProgramsAreSaidToBe)
{
    const RunningStream stream = sendTables(
        {associations({{5, 0x100}}), programMap(5, 0x100, 0x1B, conax), serviceList(5, true, "Paid")});
    const QStringList scanned{"scan", "udp://239.0.0.1:1234", "--wait", "3"};
    const QJsonObject scan = toolJson(scanned);
    EXPECT_TRUE(scan["services"][0]["scrambled"].toBool());
    const QJsonValue system = scan["programs"][0]["conditional_access"][0];
    EXPECT_EQ(system["system_id"].toInt(), 0x0B00);
    EXPECT_EQ(system["system"].toString(), "Conax");
    EXPECT_EQ(system["ecm_pid"].toInt(), 0x102);
    const QByteArray text = tool(scanned).output;
    EXPECT_TRUE(text.contains("Program 5  Paid  (no sound, scrambled)\n")) << text.constData();
    EXPECT_TRUE(text.contains("conditional access 0x0b00 Conax, ECM on PID 258 (0x102)")) << text.constData();
    const QJsonObject told = toolJson({"play", "paid", "--wait", "1"})["presentation"].toObject();
    EXPECT_EQ(told["text"].toString(), "nothing decoded yet: scrambled");
    EXPECT_EQ(told["scrambled"].toString(), "yes");
}

TEST_F(ToolTables, ServicesWhosePmtDoesNotComeAreNamed)
{
    const RunningStream stream = sendTables({associations({{5, 0x100}}), serviceList(5, false, "Absent")});
    const CommandResult scan = tool({"scan", "udp://239.0.0.1:1234", "--wait", "2"});
    EXPECT_TRUE(scan.errors.contains("no PMT came of 5")) << scan.errors.constData();
}

TEST_F(ToolTables, AScanTellsWhetherDatagramsArrive)
{
    expectFailure(tool({"scan", "udp://239.0.0.77:7777", "--wait", "1"}), 6, "no datagram arrives");
    // Null packets alone: a stream, but nothing in it.
    const RunningStream stream = sendTables({{0x1FFF, Bytes(183, 0xFF)}});
    expectFailure(tool({"scan", "udp://239.0.0.1:1234", "--wait", "1"}), 6, "though datagrams arrive");
    // What was measured just before is not taken for the server's.
    ASSERT_TRUE(tool({"measure", "udp://239.0.0.1:1234"}).ok());
    expectFailure(tool({"scan", "rtp://239.0.0.77:7777", "--wait", "0"}), 6, "no datagram arrives");
}

// A recorded T2-MI stream: PID 64, PLP 102.
TEST_F(ToolTables, T2miIsFoundAndAWrongPlpIsSaidToBeThat)
{
    const auto path = samplePath("t2mi-plp102.ts");
    if (!path.has_value())
        GTEST_SKIP() << missingSample("t2mi-plp102.ts");
    const RunningStream stream = sendStream(QString::fromStdString(*path), {"--bitrate", "8M"});
    const CommandResult plain = tool({"scan", "udp://239.0.0.1:1234", "--wait", "2"});
    EXPECT_TRUE(plain.output.contains("64 (0x40)")) << plain.output.constData();
    EXPECT_TRUE(plain.output.contains("T2-MI")) << plain.output.constData();
    EXPECT_TRUE(plain.errors.contains("PID 64 (0x40) carries T2-MI")) << plain.errors.constData();
    expectFailure(tool({"scan", "udp+t2mi://239.0.0.1:1234?pid=0x40&plp=5", "--wait", "2"}), 6,
        "no frame of PLP 5 in the T2-MI stream, only of PLP 102");
    expectFailure(tool({"scan", "udp+t2mi://239.0.0.1:1234?pid=65&plp=102", "--wait", "2"}), 6,
        "no T2-MI packet on PID 65 (0x41), though datagrams arrive");
}

TEST_F(ToolTables, T2miIsSurveyed)
{
    const auto path = samplePath("t2mi-plp102.ts");
    if (!path.has_value())
        GTEST_SKIP() << missingSample("t2mi-plp102.ts");
    const RunningStream stream = sendStream(QString::fromStdString(*path), {"--bitrate", "1M"});
    tool({"scan", "udp+t2mi://239.0.0.1:1234?pid=64&plp=102", "--wait", "2", "--no-pids"});
    const QByteArray frame = tool({"t2mi-frame", "--type", "baseband", "--wait", "60"}).output;
    EXPECT_TRUE(frame.contains("high efficiency, CRC-8 right")) << frame.constData();
    const QJsonObject survey = toolJson({"t2mi-frame", "--survey", "--wait", "5"});
    EXPECT_EQ(survey["plps"].toArray(), QJsonArray{102}) << QJsonDocument(survey).toJson().constData();
    EXPECT_EQ(survey["crc_wrong"].toInt(), 0);
    EXPECT_TRUE(tool({"t2mi-frame", "--survey", "--wait", "2"}).output.contains("PLPs: 102\n"));
    expectFailure(tool({"t2mi-frame", "--type", "fef-null", "--wait", "1"}), 6, "no T2-MI packet of type");
}

// Signalling and timestamp of that stream, each in a packet of its own; there they share one with a third,
// which then is the last.
TEST_F(ToolTables, T2miPacketsAreChosenByType)
{
    const auto bytes = [](const char* hex) {
        const QByteArray raw = QByteArray::fromHex(hex);
        return Bytes(raw.begin(), raw.end());
    };
    const Bytes l1Current = bytes("10fbf0000228010000882020005e0013e200000030033003020290208f00bf0002020000"
                                  "00000001988c00008920a00810fff47ffffffe007f0100000000000001fecc00000029"
                                  "fffe0000c3c8bf97");
    const Bytes timestamp = bytes("20faf00000580200000000005949eaa0004bc1fcff");
    const RunningStream stream =
        sendTables({{64, l1Current}, {64, timestamp}}, {"--bitrate", "50k", "--packets", "1"});
    tool({"scan", "udp+t2mi://239.0.0.1:1234?pid=64&plp=7", "--wait", "1"});
    const QJsonObject l1 = toolJson({"t2mi-frame", "--type", "l1-current", "--wait", "60"})["l1"].toObject();
    EXPECT_EQ(l1["transmission_mode"].toString(), "16k");
    EXPECT_EQ(l1["plps"][0]["id"].toInt(), 102);
    const QJsonObject stamp =
        toolJson({"t2mi-frame", "--type", "timestamp", "--wait", "60"})["timestamp"].toObject();
    EXPECT_EQ(stamp["kind"].toString(), "relative");
    EXPECT_EQ(stamp["bandwidth_hz"].toDouble(), 6e6);
    // L1 alone tells the PLPs, too.
    const CommandResult survey = tool({"t2mi-frame", "--survey", "--wait", "3"});
    EXPECT_TRUE(survey.output.contains("102 (data, type 1, TS")) << survey.output.constData();
    expectFailure(tool({"scan", "udp+t2mi://239.0.0.1:1234?pid=64&plp=7", "--wait", "1"}), 6,
        "PLP 7 is not in the T2-MI stream, which has PLP 102");
}

class ToolLink : public ToolTables
{
protected:
    void TearDown() override
    {
        instrument().setLink(true);
        ToolTables::TearDown();
    }
};

TEST_F(ToolLink, ALinkThatIsDownIsSaidByScanAndPlay)
{
    instrument().setLink(false);
    EXPECT_TRUE(waitUntil([] { return tool({"interface"}).status == 7; }));
    expectFailure(tool({"scan", "udp://239.0.0.1:1234"}), 7, "the instrument's Ethernet is not connected");
    expectFailure(tool({"play", "1", "--wait", "1"}), 7, "and the instrument's Ethernet is not connected");
}

} // namespace
