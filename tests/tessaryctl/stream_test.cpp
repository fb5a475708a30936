#include "client/psi/t2mipacket.h"
#include "kit/oracle.h"
#include "kit/sections.h"
#include "lineproxy.h"
#include "otherreaders.h"
#include "tablestream.h"
#include "toolsuite.h"

#include <QFile>

namespace {

using namespace tessary::test;
using tessary::client::Bytes;

class ToolStream : public ToolSuite
{
protected:
    void SetUp() override { restartDaemon(); }
};

/// A stream of one program whose service has these texts, as carried, and whose picture is announced but does
/// not come.
void writeStream(const QString& path, const std::string& provider, const std::string& name,
    const Bytes& programDescriptors = {})
{
    const Bytes pat = makeSection(0x00, 7, {0x00, 0x05, 0xE1, 0x00});
    const Bytes pmt = makeSection(
        0x02, 5, join({{0xE1, 0x01}, makeLoop(programDescriptors), {0x1B, 0xE1, 0x01}, makeLoop({})}));
    const Bytes descriptor = serviceDescriptor(0x19, provider, name);
    Bytes loop = makeLoop(descriptor);
    loop[0] = static_cast<std::uint8_t>((loop[0] & 0x0FU) | 0x80U);
    const Bytes sdt = makeSection(0x42, 7, join({{0x20, 0x01, 0xFF}, {0x00, 0x05, 0xFC}, loop}));
    const Bytes nit = makeSection(0x40, 9, join({makeLoop(makeDescriptor(0x40, {'N'})), makeLoop({})}));
    writeTableStream(path, {{0, pat}, {0x100, pmt}, {0x11, sdt}, {0x10, nit}});
}

TEST_F(ToolStream, CyrillicNamesComeOutRight)
{
    const QString file = instrument().path("cyrillic.ts");
    // ISO 8859-5, named by its first byte.
    writeStream(file, std::string("\x01\xC2\xB5\xBB\xB5\xBA\xBE\xBC"),
        std::string("\x01\xBF\xD5\xE0\xD2\xEB\xD9 \xDA\xD0\xDD\xD0\xDB"));
    const RunningStream stream = sendStream(file, {"--bitrate", "1M"});
    const QJsonObject scan = toolJson({"scan", "udp://239.0.0.1:1234"});
    EXPECT_EQ(scan["services"][0]["name"].toString(), QString::fromUtf8("Первый канал"));
    EXPECT_EQ(scan["services"][0]["provider"].toString(), QString::fromUtf8("ТЕЛЕКОМ"));
    if (samplePath("oracle.py").has_value())
        expectAsTheOracleSays(scan, oracleReport(file.toStdString()));
    EXPECT_TRUE(tool({"info"}).output.contains("Первый канал  ТЕЛЕКОМ"));
    EXPECT_EQ(toolJson({"play", "ПЕРВЫЙ КАНАЛ ", "--wait", "1"})["program"].toInt(), 5);
}

TEST_F(ToolStream, PlayTakesNumbersAndNamesAndShowsThePids)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    const CommandResult played = tool({"play", "2"});
    EXPECT_TRUE(played.output.startsWith("running: program 2  Tessary Grün\n")) << played.output.constData();
    EXPECT_TRUE(played.output.contains("MPEG-2 video, PCR")) << played.output.constData();
    const QJsonObject byName = toolJson({"play", "café tessary"});
    EXPECT_EQ(byName["program"].toInt(), 1);
    EXPECT_EQ(byName["status"].toString(), "running");
    EXPECT_EQ(byName["map"].toObject()["streams"].toArray().size(), 2);
    expectFailure(tool({"play", "9", "--wait", "1"}), 6, "no program 9");
    expectFailure(tool({"play", "No Such"}), 6, "no service has the name");
    EXPECT_EQ(toolJson({"status"})["player"].toString(), "running");
}

// services.ts, each of its kinds played; a picture has 352 × 288. What the tool tells of it:
struct Service
{
    const char* program;
    const char* text;
    const char* picture;
    QJsonValue video;
    const char* sound;
    QJsonValue audio;
};

TEST_F(ToolStream, PlayTellsWhatIsToBeSeenAndHeard)
{
    const RunningStream stream = sendStream(madeStream("services.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    for (const Service& service :
        {Service{"1", "picture and sound", "decoded", "MPEG-2", "decoded", "MPEG-1 layer 2"},
            Service{"2", "sound only: radio", "absent", {}, "decoded", "MPEG-1 layer 2"},
            Service{"3", "sound only: radio", "absent", {}, "decoded", "AAC"},
            Service{"4", "sound only: radio", "absent", {}, "decoded", "AC-3"},
            Service{"5", "sound only: radio", "absent", {}, "decoded", "E-AC-3"},
            Service{"6", "picture only: the service has no sound", "decoded", "MPEG-2", "absent", {}},
            Service{"7", "picture only: no decoder for the sound (AC-4)", "decoded", "MPEG-2", "undecodable",
                "AC-4"}}) {
        const QJsonObject told =
            toolJson({"play", service.program, "--wait", "30"})["presentation"].toObject();
        const bool seen = service.picture == std::string("decoded");
        EXPECT_EQ(told["text"].toString(), service.text);
        EXPECT_EQ(told["picture"].toString(), service.picture) << service.text;
        EXPECT_EQ(told["video"], service.video) << service.text;
        EXPECT_EQ(told["width"].toInt(), seen ? 352 : 0) << service.text;
        EXPECT_EQ(told["height"].toInt(), seen ? 288 : 0) << service.text;
        EXPECT_EQ(told["sound"].toString(), service.sound) << service.text;
        EXPECT_EQ(told["audio"], service.audio) << service.text;
    }
}

TEST_F(ToolStream, PlayTellsItInWordsToo)
{
    const RunningStream stream = sendStream(madeStream("services.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    const QByteArray radio = tool({"play", "radio aac", "--wait", "30"}).output;
    EXPECT_TRUE(radio.startsWith("running: program 3  Radio AAC\n  sound only: radio\n  sound    AAC\n  PID"))
        << radio.constData();
    const QByteArray television = tool({"play", "1", "--wait", "30"}).output;
    EXPECT_TRUE(television.startsWith("running: program 1  Television\n  picture and sound\n"
                                      "  picture  MPEG-2, 352 × 288\n  sound    MPEG-1 layer 2\n  PID"))
        << television.constData();
}

TEST_F(ToolStream, PlayWithoutScanKnowsNoServiceTypes)
{
    const RunningStream stream = sendStream(madeStream("services.ts"));
    ASSERT_TRUE(tool({"server", "udp://239.0.0.1:1234"}).ok());
    const QByteArray radio = tool({"play", "2", "--wait", "30"}).output;
    EXPECT_TRUE(radio.startsWith("running: program 2\n  sound only: the service has no picture\n"))
        << radio.constData();
}

TEST_F(ToolStream, PlayTellsThatNothingIsDecoded)
{
    const Bytes conditionalAccess = makeDescriptor(0x09, {0x0B, 0x00, 0xE1, 0x02});
    const QString clear = instrument().path("clear.ts");
    const QString scrambled = instrument().path("scrambled.ts");
    writeStream(clear, "Desk", "Clear");
    writeStream(scrambled, "Desk", "Scrambled", conditionalAccess);
    for (const auto& [file, text] :
        {std::pair{clear, "nothing decoded yet"}, std::pair{scrambled, "nothing decoded yet: scrambled?"}}) {
        const RunningStream stream = sendStream(file, {"--bitrate", "1M"});
        ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
        const QJsonObject told = toolJson({"play", "5"})["presentation"].toObject();
        EXPECT_EQ(told["text"].toString(), text);
        EXPECT_EQ(told["picture"].toString(), "awaited");
        EXPECT_EQ(told["video"].toString(), "H.264");
    }
}

TEST_F(ToolStream, PlayGoesOnWithoutTheDecoderInformation)
{
    const RunningStream stream = sendStream(madeStream("services.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    LineProxy::Faults faults;
    faults.swallowed = "!07_E_&\n";
    const LineProxy proxy(port().toStdString(), faults);
    const CommandResult played =
        toolOn(QString::fromStdString(proxy.path()), {"--timeout", "3", "play", "1", "--wait", "30"});
    EXPECT_TRUE(played.ok()) << played.errors.constData();
    EXPECT_TRUE(played.output.startsWith(
        "running: program 1  Television\n  the instrument does not tell what it decodes\n  PID"))
        << played.output.constData();
}

TEST_F(ToolStream, InfoTellsWhatIsKnownAndDisturbsNothing)
{
    expectFailure(tool({"info"}), 6, "no source has been selected");
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    EXPECT_TRUE(tool({"info"}).errors.contains("PIDs are known of the program that is played"));
    ASSERT_TRUE(tool({"play", "3"}).ok());
    const QJsonObject info = toolJson({"info"});
    EXPECT_EQ(info["services"].toArray().size(), 3);
    ASSERT_EQ(info["programs"].toArray().size(), 1);
    EXPECT_EQ(info["programs"][0]["program"].toInt(), 3);
    EXPECT_EQ(toolJson({"status"})["player"].toString(), "running");
}

TEST_F(ToolStream, SendTsReachesTheFpga)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"server", "udp://239.0.0.1:1234"}).ok());
    const QString out = instrument().sharedFile("fpga-out.ts");
    EXPECT_TRUE(tool({"send-ts"}).output.startsWith("running: the stream goes to the FPGA"));
    EXPECT_TRUE(waitUntil([&] { return QFile(out).size() > 188 * 100; }));
    EXPECT_EQ(toolJson({"send-ts"})["status"].toString(), "running");
}

TEST_F(ToolStream, T2miFrameIsTakenApart)
{
    expectFailure(tool({"t2mi-frame"}), 6, "no T2-MI frame");
    const auto path = samplePath("t2mi-plp102.ts");
    if (!path.has_value())
        GTEST_SKIP() << missingSample("t2mi-plp102.ts");
    const RunningStream stream = sendStream(QString::fromStdString(*path), {"--bitrate", "8M"});
    tool({"scan", "udp+t2mi", "239.0.0.1", "1234", "64", "102", "--wait", "3", "--no-pids"});
    const QString file = instrument().path("frame.bin");
    EXPECT_TRUE(waitUntil([&] { return tool({"t2mi-frame"}).ok(); }));
    QJsonObject json;
    const auto isBasebandFrame = [&] { // most packets are
        json = toolJson({"t2mi-frame", "--out", file});
        return json["packet_type"].toInt() == 0;
    };
    EXPECT_TRUE(waitUntil(isBasebandFrame));
    EXPECT_TRUE(json["crc_correct"].toBool()) << QJsonDocument(json).toJson().constData();
    EXPECT_EQ(json["packet_type_name"].toString(), "baseband frame");
    EXPECT_EQ(json["baseband_frame"].toObject()["plp_id"].toInt(), 102);
    EXPECT_EQ(QFile(file).size(), json["bytes"].toInt());
    const QByteArray text = tool({"t2mi-frame"}).output;
    EXPECT_TRUE(text.contains("CRC-32        right\n")) << text.constData();
}

} // namespace
