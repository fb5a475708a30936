#include "../client/sectionbuilder.h"
#include "tablestream.h"
#include "toolsuite.h"

#include <algorithm>

namespace {

using namespace tessary::test;
using tessary::client::Bytes;

// What the tool says of streams that lack something, made of tables alone.

class ToolTables : public ToolSuite
{
protected:
    void SetUp() override { restartDaemon(); }

    static RunningStream sendTables(const std::vector<CarriedSection>& sections)
    {
        const QString file = instrument().path("tables.ts");
        writeTableStream(file, sections);
        return sendStream(file, {"--bitrate", "1M"});
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
    EXPECT_TRUE(text.contains("conditional access 0x0b00 Conax, ECM on PID 258")) << text.constData();
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
