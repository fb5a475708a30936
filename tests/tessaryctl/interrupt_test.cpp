#include "jsoncontract.h"
#include "toolsuite.h"
#include "toolterminal.h"

#include <csignal>
#include <QFile>

namespace {

using namespace tessary::test;

// Ctrl-C in the middle of a sub-command leaves instrument and line as the next one needs them.

class ToolInterrupted : public ToolSuite
{
protected:
    void SetUp() override
    {
        restartDaemon();
        m_logStart = instrument().daemonLog().size();
    }

    /// What the daemon has logged since the test began.
    QByteArray log() const { return instrument().daemonLog().mid(m_logStart); }
    bool logs(const QByteArray& text) const
    {
        return waitUntil([&] { return log().contains(text); });
    }

    static void send(const GuardedProcess& process, int signal)
    {
        EXPECT_EQ(::kill(static_cast<pid_t>(process.processId()), signal), 0);
    }

    /// Sends the signal and waits for the end; what it left.
    static CommandResult interrupted(GuardedProcess& process, int signal = SIGINT)
    {
        send(process, signal);
        EXPECT_TRUE(process.waitForFinished(patienceMilliseconds));
        return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
    }

    static qint64 recordedBytes()
    {
        return instrument()
            .shell("stat -c %s /run/media/mmcblk1p1/record.ts 2>/dev/null || echo 0")
            .trimmed()
            .toLongLong();
    }

    static QString makePackage(int payloadBytes)
    {
        QString file = instrument().path("update.deb");
        EXPECT_TRUE(runCommand(TESSARY_SOURCE_DIR "/bench/counterparts/make-package",
            {"--bytes", QString::number(payloadBytes), file})
                        .ok());
        return file;
    }

private:
    int m_logStart = 0;
};

TEST_F(ToolInterrupted, ARecordingThatWasToTakeLongerIsEnded)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    for (const int signal : {SIGINT, SIGTERM}) {
        ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
        instrument().shell("rm -f /run/media/mmcblk1p1/record.ts");
        const QStringList arguments{"record", "start", "--seconds", "600", "--json"};
        const auto process = startTool(arguments);
        ASSERT_TRUE(waitUntil([] { return recordedBytes() > 200000; }));
        const CommandResult result = interrupted(*process, signal);
        expectFailure(result, 130, "the recording was ended after ");
        expectContract(arguments, result);
        EXPECT_EQ(QJsonDocument::fromJson(result.output)["recording_bytes"].toDouble(),
            static_cast<double>(recordedBytes()));
        expectFailure(tool({"info"}), 6, "no source"); // stopping ended it, too
    }
}

TEST_F(ToolInterrupted, ARecordingWithoutEndIsSaidToGoOn)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    const auto process = startTool({"record", "start"});
    ASSERT_TRUE(logs("Uart_PVR_Record"));
    const CommandResult result = interrupted(*process);
    expectFailure(result, 130, "the recording has begun and goes on");
    EXPECT_TRUE(waitUntil([] { return recordedBytes() > 200000; }));
    EXPECT_TRUE(tool({"record", "stop"}).ok());
}

TEST_F(ToolInterrupted, AnUpdateLeavesTheInstrumentListeningAndOnTheNetwork)
{
    const QStringList arguments{"update", makePackage(100000), "--rate", "5000", "--json"};
    const auto process = startTool(arguments);
    ASSERT_TRUE(logs("UPDate"));
    const CommandResult result = interrupted(*process);
    expectFailure(result, 130, "takes commands again, and its networking is on");
    expectContract(arguments, result);
    EXPECT_TRUE(log().contains("Waiting bytes too long time !"));
    EXPECT_TRUE(tool({"version"}).ok());
    EXPECT_TRUE(waitUntil([] { return tool({"interface"}).output.startsWith("192.168.77."); }));
}

TEST_F(ToolInterrupted, AnUpdateThatIsWhollySentIsFinished)
{
    const QString file = makePackage(3000);
    instrument().misbehave({"dpkg", "--when=--force-all", "--delay", "3", "--times", "1"});
    const auto process = startTool({"update", file, "--rate", "100000"});
    ASSERT_TRUE(waitUntil([] {
        const auto commands = instrument().commands();
        return std::any_of(commands.begin(), commands.end(),
            [](const auto& command) { return command.text().contains("--force-all"); });
    }));
    const CommandResult result = interrupted(*process);
    instrument().misbehave({"dpkg", "--real"});
    EXPECT_EQ(result.status, 0) << result.errors.constData();
    EXPECT_TRUE(result.output.startsWith("update ok: ")) << result.output.constData();
}

TEST_F(ToolInterrupted, APingIsWaitedForAndTheLineIsClean)
{
    const auto process = startTool({"ping", "192.168.77.1", "-c", "3"});
    ASSERT_TRUE(logs("PINg"));
    const CommandResult result = interrupted(*process);
    expectFailure(result, 130, "the line is free");
    EXPECT_TRUE(result.errors.contains("waiting for the end of the instrument's ping"));
    EXPECT_TRUE(result.output.contains("3 packets transmitted, 3 received"));
    EXPECT_EQ(toolJson({"version"})["software"].toString(), "1.4");
}

TEST_F(ToolInterrupted, ASecondCtrlCLeavesAPingAndTheNextCommandGetsItsOwnAnswer)
{
    const auto process = startTool({"ping", "192.168.77.1", "-c", "4"});
    process->setReadChannel(QProcess::StandardError);
    ASSERT_TRUE(logs("PINg"));
    send(*process, SIGINT);
    ASSERT_TRUE(waitUntil([&] {
        process->waitForReadyRead(20);
        return process->peek(1000).contains("Ctrl-C again");
    }));
    const CommandResult result = interrupted(*process);
    expectFailure(result, 130, "was ended");
    EXPECT_TRUE(result.output.isEmpty()) << result.output.constData();
    EXPECT_TRUE(tool({"interface"}).output.startsWith("192.168.77."));
}

TEST_F(ToolInterrupted, InTheShellItEndsTheCommandAndNotTheShell)
{
    ToolTerminal terminal(port(), {"shell"}, instrument().path("state"));
    ASSERT_TRUE(terminal.shows("tessary> ")) << terminal.seen().constData();
    terminal.type("command 'sleep 2'\n");
    ASSERT_TRUE(logs("Console command"));
    terminal.type("\x03");
    ASSERT_TRUE(terminal.shows("waiting on port")) << terminal.seen().constData();
    terminal.type("version\n");
    ASSERT_TRUE(terminal.shows("software  1.4")) << terminal.seen().constData();
    terminal.type("nosuch\x03");
    terminal.type("ebs name 31\n");
    ASSERT_TRUE(terminal.shows("Service31")) << terminal.seen().constData();
    EXPECT_FALSE(terminal.seen().contains("not expected")) << terminal.seen().constData();
    terminal.type("ping 192.168.77.1 -c 2\n");
    ASSERT_TRUE(logs("PINg"));
    terminal.type("\x03");
    ASSERT_TRUE(terminal.shows("the line is free")) << terminal.seen().constData();
    terminal.type("exit\n");
    EXPECT_EQ(terminal.waitForEnd(), 0);
}

TEST_F(ToolInterrupted, ALogUnderNohupOutlivesItsTerminal)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    const QString path = instrument().path("nohup.jsonl");
    const auto periods = [&] {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll().count("\"period\"") : 0;
    };
    GuardedProcess log;
    log.start("nohup", {toolPath(), "--port", port(), "log", "--output", path, "udp://239.0.0.1:1234"});
    ASSERT_TRUE(waitUntil([&] { return periods() > 0; })) << log.readAllStandardError().constData();
    send(log, SIGHUP);
    const int before = periods();
    EXPECT_TRUE(waitUntil([&] { return periods() > before + 1; })) << "it goes on";
    EXPECT_EQ(interrupted(log, SIGTERM).status, 0);
}

} // namespace
