#include "firstinturn.h"
#include "toolsuite.h"
#include "toolterminal.h"

#include <cmath>
#include <iostream>
#include <QFile>
#include <thread>

namespace {

using namespace tessary::test;

// The sender's own figures are the expected ones: demo.ts at 10 Mbit/s is a frame of 1358 bytes every 1052.8
// µs.

constexpr double frameBits = 1358 * 8;
constexpr double interval = 1316 * 8 / 10.0; // µs

class ToolMeasure : public ToolSuite
{
protected:
    /// Of an earlier stream no arrival is among the 1024 that the instrument keeps.
    static RunningStream send(const QStringList& options = {})
    {
        return sendStream(madeStream("demo.ts"), QStringList{"--bitrate", "10M"} + options, 1100 * 1358);
    }

    /// The readings of --watch.
    static std::vector<QJsonObject> watch(const QStringList& options, int milliseconds = patienceMilliseconds)
    {
        const CommandResult result = runCommand(toolPath(),
            QStringList{"--port", port(), "measure", "--watch", "--json"} + options, milliseconds);
        EXPECT_TRUE(result.ok()) << result.errors.constData();
        std::vector<QJsonObject> readings;
        for (const QByteArray& line : result.output.trimmed().split('\n'))
            readings.push_back(QJsonDocument::fromJson(line).object());
        return readings;
    }

    /// A stream with errors for so long, before and after them none, is watched as a whole: the total is the
    /// sender's own.
    static void expectTheErrorsSent(double every, int seconds)
    {
        constexpr int before = 12; // until the first period counts, with time to spare
        constexpr int after = 12;
        constexpr int perSecond = 3;
        RunningStream stream = send({"--cc-errors-per-second", QString::number(perSecond), "--cc-errors-from",
            QString::number(before), "--cc-errors-for", QString::number(seconds), "--duration",
            QString::number(before + seconds + after), "--json"});
        const int count = static_cast<int>(std::ceil((before + seconds + 4) / every));
        const auto readings = watch({"--interval", QString::number(every), "--count", QString::number(count)},
            (seconds + 300) * 1000);
        ASSERT_TRUE(stream.waitUntilSent()) << stream.errors().constData();
        const int sent = QJsonDocument::fromJson(stream.output()).object()["injected_cc_errors"].toInt();
        EXPECT_EQ(sent, perSecond * seconds);
        const QJsonValue total = readings.back()["since_start"];
        // Of a period that may have been missed, or looks like its neighbour, the tool says so itself.
        const int unsure =
            total["errors_unsure"].toInt() + (perSecond + 1) * total["periods_missed_at_most"].toInt();
        EXPECT_NEAR(total["continuity_errors"].toInt(), sent, unsure) << every;
        std::cout << "every " << every << " s: " << total["continuity_errors"].toInt() << " of " << sent
                  << " errors in " << total["periods"].toInt() << " periods, " << unsure << " unsure\n";
    }

private:
    const FirstInTurn m_first{instrument().daemonPid()};
};

TEST_F(ToolMeasure, MeasureGivesTheFiguresOfTheStream)
{
    const RunningStream stream = send({"--cc-errors-per-second", "4"});
    const QJsonObject json = toolJson({"measure", "udp://239.0.0.1:1234"});
    EXPECT_TRUE(json["present"].toBool());
    EXPECT_EQ(json["server"].toString(), "udp://239.0.0.1:1234");
    EXPECT_EQ(toolJson({"measure"})["server_time"], json["server_time"]) << "nobody set it anew";
    EXPECT_NEAR(json["bit_rate"].toDouble(), frameBits / interval * 1e6, 3e5);
    EXPECT_GE(json["delay_factor_ms"].toInt(), 1);
    EXPECT_LT(json["delay_factor_ms"].toInt(), 900) << "the first period has nothing to drain by";
    EXPECT_NEAR(json["continuity_errors"].toInt(), 4, 1);
    EXPECT_EQ(json["packet_size"].toInt(), 188);
    EXPECT_EQ(json["packets_per_datagram"].toInt(), 7);
    const QByteArray text = tool({"measure"}).output;
    EXPECT_TRUE(text.contains("Mbit/s")) << text.constData();
    EXPECT_TRUE(text.startsWith("stream             udp://239.0.0.1:1234\n")) << text.constData();
    EXPECT_TRUE(text.contains("7 × 188 bytes\n")) << text.constData();
}

TEST_F(ToolMeasure, MeasureSaysThatItDoesNotKnowTheStream)
{
    const RunningStream stream = send();
    ASSERT_TRUE(tool({"server", "udp://239.0.0.1:1234"}).ok());
    ASSERT_TRUE(QFile::remove(instrument().path("state/tessaryctl/instruments.json")));
    const QByteArray text = tool({"measure"}).output;
    EXPECT_TRUE(text.startsWith("stream             not known: ")) << text.constData();
    EXPECT_TRUE(toolJson({"measure"})["server"].isNull());
}

TEST_F(ToolMeasure, MeasureAfterAPauseIsNotSpoiltByThePause)
{
    const RunningStream stream = send();
    ASSERT_TRUE(tool({"measure", "udp://239.0.0.1:1234"}).ok());
    ASSERT_TRUE(tool({"scan", "--no-pids"}).ok()); // ends the capture
    std::this_thread::sleep_for(std::chrono::seconds(5));
    const QJsonObject json = toolJson({"measure"});
    EXPECT_NEAR(json["bit_rate"].toDouble(), frameBits / interval * 1e6, 3e5);
    EXPECT_LT(json["delay_factor_ms"].toInt(), 900);
    EXPECT_EQ(json["continuity_errors"].toInt(), 0);
}

TEST_F(ToolMeasure, NothingOfBeforeTheStartIsShownOrCounted)
{
    // The counters go on from the capture before: most PIDs' next packet is an error that the stream has not.
    const RunningStream stream = send();
    ASSERT_TRUE(tool({"measure", "udp://239.0.0.1:1234"}).ok());
    for (const QStringList& before : {QStringList{"scan", "--no-pids"}, QStringList{"record", "stop"}}) {
        ASSERT_TRUE(tool(before).ok()); // ends the capture
        std::this_thread::sleep_for(std::chrono::seconds(3));
        for (const QJsonObject& reading : watch({"--interval", "0.2", "--count", "6"})) {
            EXPECT_EQ(reading["continuity_errors"].toInt(), 0);
            EXPECT_LT(reading["delay_factor_ms"].toInt(), 900);
            EXPECT_EQ(reading["since_start"]["continuity_errors"].toInt(), 0);
        }
    }
}

/// Half a minute each.
class ToolMeasureTotals : public ToolMeasure, public testing::WithParamInterface<double>
{
};

TEST_P(ToolMeasureTotals, AreTheErrorsThatWereSent)
{
    expectTheErrorsSent(GetParam(), 15);
}

INSTANTIATE_TEST_SUITE_P(Intervals, ToolMeasureTotals, testing::Values(0.2, 1.0, 5.0));

/// Ten minutes each.
class ToolMeasureLong : public ToolMeasureTotals
{
};

TEST_P(ToolMeasureLong, TotalsAreTheErrorsThatWereSentInTenMinutes)
{
    expectTheErrorsSent(GetParam(), 600);
}

INSTANTIATE_TEST_SUITE_P(Intervals, ToolMeasureLong, testing::Values(0.2, 1.0, 5.0));

TEST_F(ToolMeasure, TheStreamThatIsSetIsMeasuredAndNotTheOneBefore)
{
    const RunningStream former = send();
    const RunningStream other = instrument().send({madeStream("demo.ts"), "udp://239.0.0.2:1234", "--loop",
        "--interface", "uplink", "--bitrate", "4M"});
    ASSERT_TRUE(tool({"measure", "udp://239.0.0.1:1234"}).ok());
    ASSERT_TRUE(tool({"server", "udp://239.0.0.2:1234"}).ok());
    const QJsonObject json = toolJson({"measure"});
    EXPECT_NEAR(json["bit_rate"].toDouble(), 4e6 * 1358 / 1316, 2e5);
    EXPECT_LT(json["delay_factor_ms"].toInt(), 900);
    EXPECT_EQ(json["continuity_errors"].toInt(), 0);

    ASSERT_TRUE(tool({"server", "udp://239.0.0.3:1234"}).ok());
    expectFailure(tool({"measure", "--wait", "4"}), 6, "no stream arrives");
    ASSERT_TRUE(tool({"server", "udp://239.0.0.1:1234"}).ok());
    const auto readings = watch({"--interval", "0.2", "--count", "8"});
    for (const QJsonObject& reading : readings) {
        const double expected = reading["present"].toBool() ? frameBits / interval * 1e6 : 0;
        EXPECT_NEAR(reading["bit_rate"].toDouble(), expected, 3e5);
    }
}

TEST_F(ToolMeasure, WhatComesInBesideTheStreamIsSaid)
{
    const RunningStream stream = send({"--bitrate", "4M"});
    const CommandResult alone = tool({"measure", "udp://239.0.0.1:1234"});
    EXPECT_FALSE(alone.errors.contains("beside this stream")) << alone.errors.constData();
    const CommandResult arrivalsAlone = tool({"iat"});
    EXPECT_FALSE(arrivalsAlone.errors.contains("beside this stream")) << arrivalsAlone.errors.constData();
    const RunningStream other = instrument().send({madeStream("demo.ts"), "udp://239.0.0.2:1234", "--loop",
        "--interface", "uplink", "--bitrate", "12M"});
    const CommandResult both = tool({"measure"});
    EXPECT_TRUE(both.ok());
    EXPECT_TRUE(both.errors.contains("something comes in beside this stream")) << both.errors.constData();
    const QJsonObject json = toolJson({"measure"});
    EXPECT_NEAR(json["received_bit_rate"].toDouble(), 16e6 * 1358 / 1316, 2e6);

    const CommandResult arrivals = tool({"iat"});
    EXPECT_TRUE(arrivals.errors.contains("something comes in beside this stream"))
        << arrivals.errors.constData();
    EXPECT_NEAR(toolJson({"iat"})["received_bit_rate"].toDouble(), 16e6 * 1358 / 1316, 3e6);
    const CommandResult lines = tool({"measure", "--watch", "--interval", "0.5", "--count", "25", "--json"});
    EXPECT_EQ(lines.errors.count("something comes in beside this stream"), 1) << lines.errors.constData();
    const QJsonObject first = QJsonDocument::fromJson(lines.output.split('\n').first()).object();
    const QJsonObject last = QJsonDocument::fromJson(lines.output.trimmed().split('\n').last()).object();
    EXPECT_TRUE(first["received_bit_rate"].isNull()) << "not known yet";
    EXPECT_NEAR(last["received_bit_rate"].toDouble(), 16e6 * 1358 / 1316, 2e6);
    ToolTerminal terminal(port(), {"measure", "--watch"}, instrument().path("state"));
    EXPECT_TRUE(terminal.shows("beside it")) << terminal.seen().constData();
    terminal.type("\x03");
    EXPECT_EQ(terminal.waitForEnd(), 0);
}

TEST_F(ToolMeasure, GroupsOfEarlierServersAreLeftOnDemand)
{
    QFile::remove(instrument().path("state/tessaryctl/instruments.json")); // as where no server was ever set
    const auto joined = [](const char* group) { // as the kernel writes it, its bytes turned round
        return instrument().shell("cat /proc/net/igmp").contains(group);
    };
    const QString script = instrument().path("servers");
    ASSERT_EQ(
        runCommand("/bin/sh",
            {"-c",
                QString("printf 'server udp://239.0.0.7:1234\\nserver udp://239.0.0.8:1234\\n' > ") + script})
            .status,
        0);
    const CommandResult shell =
        runCommand("/bin/sh", {"-c", QString("%1 --port %2 shell < %3").arg(toolPath(), port(), script)});
    EXPECT_TRUE(shell.errors.contains("groups of earlier stream servers stay joined"))
        << shell.errors.constData();
    EXPECT_TRUE(shell.errors.contains("the instrument stays in group 239.0.0.7")) << shell.errors.constData();
    EXPECT_TRUE(waitUntil([&] { return joined("080000EF"); }));
    EXPECT_TRUE(joined("070000EF"));
    EXPECT_TRUE(tool({"server", "--leave", "239.0.0.7"}).output.contains("told to leave 1 group"));
    EXPECT_TRUE(waitUntil([&] { return !joined("070000EF"); }));
    EXPECT_TRUE(joined("080000EF"));
    const auto stays = [](const char* server) {
        return tool({"server", server}).errors.contains("stays in");
    };
    EXPECT_TRUE(tool({"server", "--leave", "239.0.0.8"}).ok());
    EXPECT_FALSE(stays("udp://239.0.0.9:1234")) << "the group before has been left";
    EXPECT_TRUE(stays("udp://239.0.0.8:1234"));
    expectFailure(tool({"server", "--leave", "10.0.0.1"}), 2, "is no multicast group");
}

TEST_F(ToolMeasure, WithoutStreamItEndsWithSix)
{
    expectFailure(tool({"measure", "udp://239.0.0.99:999", "--wait", "1"}), 6, "no stream arrives");
    expectFailure(tool({"iat", "udp://239.0.0.99:998", "--wait", "1"}), 6, "no datagram arrived");
}

TEST_F(ToolMeasure, WatchWritesALineForEachReadingIntoAPipe)
{
    const RunningStream stream = send();
    ASSERT_TRUE(tool({"measure", "udp://239.0.0.1:1234"}).ok());
    const QByteArray text = tool({"measure", "--watch", "--count", "2", "--interval", "1.1"}).output;
    EXPECT_EQ(text.count('\n'), 2) << text.constData();
    EXPECT_EQ(text.count("delay factor"), 2);
    const QByteArray json = tool({"measure", "--watch", "--count", "2", "--json"}).output;
    const QList<QByteArray> lines = json.trimmed().split('\n');
    ASSERT_EQ(lines.size(), 2);
    const QJsonObject reading = QJsonDocument::fromJson(lines[1]).object();
    EXPECT_TRUE(reading["present"].toBool());
    EXPECT_EQ(reading["inter_arrival"]["count"].toInt(), 1024);
}

TEST_F(ToolMeasure, WatchOnATerminalShowsAScreenAndEndsWithCtrlC)
{
    const RunningStream stream = send();
    ASSERT_TRUE(tool({"measure", "udp://239.0.0.1:1234"}).ok());
    ToolTerminal terminal(port(), {"measure", "--watch"}, instrument().path("state"));
    EXPECT_TRUE(terminal.shows("stream present")) << terminal.seen().constData();
    EXPECT_TRUE(terminal.shows("inter-arrival times")) << terminal.seen().constData();
    EXPECT_TRUE(terminal.shows("█")) << terminal.seen().constData();
    terminal.type("\x03"); // what Ctrl-C sends
    EXPECT_EQ(terminal.waitForEnd(), 0);
}

TEST_F(ToolMeasure, TheScreenFitsASmallTerminal)
{
    const RunningStream stream = send();
    const QString command =
        QString("stty rows 14 cols 50; %1 --port %2 measure --watch --count 2").arg(toolPath(), port());
    const CommandResult result = runCommand("/usr/bin/script", {"-qec", command, "/dev/null"}, 30000);
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    const QList<QByteArray> lines = result.output.split('\x1b').last().mid(3).trimmed().split('\n');
    EXPECT_GT(lines.size(), 8);
    EXPECT_LE(lines.size(), 14);
    for (const QByteArray& line : lines)
        EXPECT_LE(QString::fromUtf8(line.trimmed()).size(), 50) << line.constData();
}

TEST_F(ToolMeasure, IatGivesStatisticsHistogramAndPlots)
{
    ASSERT_TRUE(
        tool({"record", "stop"}).ok()); // ends the capture, which would tell the time since another stream
    const RunningStream stream = send();
    const QString png = instrument().path("iat.png");
    const QString svg = instrument().path("iat.svg");
    const QJsonObject json =
        toolJson({"iat", "udp://239.0.0.1:1234", "--png", png, "--svg", svg, "--bins", "7"});
    EXPECT_GE(json["count"].toInt(), 1000);
    EXPECT_NEAR(json["mean_us"].toDouble(), interval, interval * 0.1);
    EXPECT_EQ(json["times_us"].toArray().size(), json["count"].toInt());
    EXPECT_LE(json["histogram"].toArray().size(), 7);
    int counted = 0;
    for (const QJsonValue& bin : elements(json["histogram"]))
        counted += bin["count"].toInt();
    EXPECT_EQ(counted, json["count"].toInt());
    QFile picture(png);
    ASSERT_TRUE(picture.open(QIODevice::ReadOnly));
    EXPECT_EQ(picture.read(8), QByteArray("\x89PNG\r\n\x1a\n"));
    QFile drawing(svg);
    ASSERT_TRUE(drawing.open(QIODevice::ReadOnly));
    EXPECT_TRUE(drawing.readAll().contains("<svg"));

    const QByteArray text = tool({"iat", "--plot"}).output;
    EXPECT_TRUE(text.contains(" frames: mean 1.")) << text.constData();
    EXPECT_TRUE(text.contains("█"));
    expectFailure(tool({"iat", "--png", "/nosuch/iat.png"}), 9, "cannot write /nosuch/iat.png");
}

} // namespace
