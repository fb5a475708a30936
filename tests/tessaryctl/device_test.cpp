#include "burstline.h"
#include "toolsuite.h"

#include <QFile>

namespace {

using namespace tessary::test;

// Recorder, DAB receiver and EBS frames against the hardware's counterparts.

class ToolDevices : public ToolSuite
{
protected:
    void SetUp() override
    {
        restartDaemon();
        instrument().shell("rm -f /run/media/mmcblk1p1/*");
    }
};

TEST_F(ToolDevices, RecordMakesARecordingThatExportSendsToTheFpga)
{
    expectFailure(tool({"export"}), 6, "no recording");
    EXPECT_EQ(tool({"record", "status"}).output, "no recording\n");
    expectFailure(tool({"scan", "--source", "recording"}), 6, "there is no recording");
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    EXPECT_TRUE(tool({"record", "start", "--seconds", "2"}).output.contains(" recorded\n"));
    const qint64 size =
        instrument().shell("stat -c %s /run/media/mmcblk1p1/record.ts").trimmed().toLongLong();
    EXPECT_GT(size, 188 * 1000);
    EXPECT_EQ(toolJson({"record", "status"})["recording_bytes"].toDouble(), static_cast<double>(size));
    EXPECT_TRUE(tool({"export"}).output.startsWith("export of "));
    EXPECT_EQ(QFile(instrument().path("hardware/export.bin")).size(), size);
    EXPECT_EQ(toolJson({"export"})["bytes"].toDouble(), static_cast<double>(size));

    EXPECT_EQ(toolJson({"scan", "--source", "recording"})["services"].toArray().size(), 3);
}

TEST_F(ToolDevices, RecordsAlsoBehindAScanThatLookedAtThePrograms)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234"}).ok());
    const CommandResult recorded = tool({"record", "start", "--seconds", "2"});
    EXPECT_TRUE(recorded.output.contains(" recorded\n")) << recorded.errors.constData();
    ASSERT_TRUE(tool({"play", "2"}).ok());
    EXPECT_TRUE(toolJson({"record", "start"})["recording"].toBool());
    EXPECT_EQ(toolJson({"status"})["player"].toString(), "running") << "a program plays on";
}

TEST_F(ToolDevices, RecordGoesOnUntilItIsStopped)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    EXPECT_TRUE(toolJson({"record", "start"})["recording"].toBool());
    const double stopped = toolJson({"record", "stop"})["recording_bytes"].toDouble();
    EXPECT_GT(stopped, 0);
    EXPECT_EQ(toolJson({"record", "status"})["recording_bytes"].toDouble(), stopped);

    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok()); // stopping ended the source, too
    EXPECT_TRUE(tool({"record", "start"}).output.endsWith(" recorded, goes on\n"));
    const CommandResult stop = tool({"record", "stop"});
    EXPECT_TRUE(stop.ok()) << stop.errors.constData();
    EXPECT_TRUE(stop.output.endsWith(" recorded\n")) << stop.output.constData();
    EXPECT_EQ(tool({"record", "status"}).output, stop.output);
}

TEST_F(ToolDevices, RecordingNothingIsAFailure)
{
    ASSERT_TRUE(tool({"server", "udp://239.0.0.55:5555"}).ok());
    tool({"scan", "--wait", "0"});
    expectFailure(tool({"record", "start", "--seconds", "1"}), 6, "nothing has been recorded");
}

TEST_F(ToolDevices, TheRecordingIsNotDestroyedByRecordingItself)
{
    const auto size = [] {
        return instrument().shell("stat -c %s /run/media/mmcblk1p1/record.ts").trimmed().toLongLong();
    };
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    ASSERT_TRUE(tool({"record", "start", "--seconds", "2"}).ok());
    const qint64 recorded = size();
    ASSERT_TRUE(tool({"scan", "--source", "recording", "--no-pids"}).ok());
    expectFailure(tool({"record", "start", "--json"}), 11, "the recording itself is the source");
    ASSERT_TRUE(tool({"play", "2"}).ok());
    expectFailure(tool({"record", "start", "--seconds", "1"}), 11, "the instrument is reading it");
    // Measuring stops playing, and the file is not read; the source is the same.
    tool({"measure", "--wait", "0"});
    expectFailure(tool({"record", "start"}), 11, "it was scanned last");
    EXPECT_EQ(size(), recorded);

    // Another controller makes it the source.
    ASSERT_TRUE(tool({"record", "stop"}).ok());
    BurstLine(instrument()).ask("PVR_scan\n");
    expectFailure(tool({"record", "start"}), 11, "the recording itself");
    EXPECT_TRUE(
        waitUntil([] { return tool({"status"}).output.contains("player     stopped"); })); // at its end
    expectFailure(tool({"record", "start"}), 11, "that tessaryctl did not choose");
    EXPECT_EQ(size(), recorded);
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    EXPECT_TRUE(tool({"record", "start", "--seconds", "1"}).ok());
}

TEST_F(ToolDevices, ACardThatFillsUpHasAStatusOfItsOwn)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"), {"--bitrate", "20M"});
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    instrument().shell("head -c $(($(stat -f -c '%a*%S' /run/media/mmcblk1p1) - 4000000)) /dev/zero "
                       "> /run/media/mmcblk1p1/other");
    const CommandResult result = tool({"record", "start", "--seconds", "600", "--json"});
    expectFailure(result, 10, "the memory card is full: the recording ends at ");
    EXPECT_EQ(QJsonDocument::fromJson(result.output)["recording_bytes"].toDouble(),
        instrument().shell("stat -c %s /run/media/mmcblk1p1/record.ts").trimmed().toDouble());

    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    ASSERT_TRUE(tool({"record", "start"}).ok());
    EXPECT_TRUE(waitUntil(
        [] { return instrument().shell("stat -f -c '%a' /run/media/mmcblk1p1").trimmed().toInt() < 16; }));
    expectFailure(tool({"record", "stop"}), 10, "the memory card is full");
}

TEST_F(ToolDevices, DabModeIsSwitchedAndTheReceiverAnswers)
{
    expectFailure(tool({"dab", "send", "list?"}), 6, "no answer from the DAB receiver");
    EXPECT_TRUE(tool({"dab", "start"}).output.contains("DAB mode is on"));
    EXPECT_TRUE(toolJson({"dab", "start"})["was_already"].toBool());
    // The counterpart answers with every bit inverted.
    const QJsonObject answer = toolJson({"dab", "send", "list?"});
    QByteArray expected = QByteArray("dab list?\n").leftJustified(117, '\0');
    for (char& byte : expected)
        byte = static_cast<char>(~byte);
    EXPECT_EQ(QByteArray::fromHex(answer["hex"].toString().toLatin1()), expected);
    EXPECT_TRUE(tool({"dab", "send", "list?"}).output.startsWith("000000  9b 9e 9d df "));
    EXPECT_FALSE(toolJson({"dab", "stop"})["dab_mode"].toBool());
    EXPECT_EQ(tool({"dab", "stop"}).output, "DAB mode was already off\n");
}

TEST_F(ToolDevices, EbsFramesAreReadable)
{
    ASSERT_TRUE(QFile::exists(instrument().sharedFile("fpga-in.ts"))
        || QFile::copy(madeStream("demo.ts"), instrument().sharedFile("fpga-in.ts")));
    EXPECT_TRUE(tool({"ebs", "scan"}).output.startsWith("scanning"));
    EXPECT_TRUE(waitUntil([] { return toolJson({"ebs", "status"})["programs"].toInt() == 3; }));
    EXPECT_EQ(tool({"ebs", "play", "2"}).output, "service 2 selected\n");
    EXPECT_EQ(toolJson({"ebs", "status"})["selected"].toInt(), 2);
    EXPECT_TRUE(tool({"ebs", "status"}).output.contains("programs  3\n"));
    EXPECT_TRUE(waitUntil([] { return toolJson({"ebs", "info"})["height"].toInt() == 576; }));
    EXPECT_TRUE(tool({"ebs", "info"}).output.contains("video    MPEG-1 or MPEG-2\n"));
    EXPECT_EQ(toolJson({"ebs", "play", "1"})["selected"].toInt(), 1);
    EXPECT_EQ(tool({"ebs", "name", "31"}).output, "Service31\n");
    EXPECT_EQ(toolJson({"ebs", "name", "5"})["name"].toString(), "Service5");
    EXPECT_TRUE(tool({"ebs", "audio", "64"}).output.startsWith("acknowledged"));
    EXPECT_TRUE(toolJson({"ebs", "audio", "64"})["acknowledged"].toBool());
    EXPECT_TRUE(tool({"ebs", "version"}).output.startsWith("SV: mx8 1.4"));
    EXPECT_TRUE(toolJson({"ebs", "version"})["software"].toString() == "1.4");
    EXPECT_TRUE(toolJson({"ebs", "scan"})["scanning"].toBool());
}

} // namespace
