#include "lineproxy.h"
#include "toolsuite.h"
#include "toolterminal.h"

#include <QFile>

namespace {

using namespace tessary::test;

class ToolShell : public ToolSuite
{
protected:
    /// A shell, its history in the run directory.
    class Terminal : public ToolTerminal
    {
    public:
        explicit Terminal(const QString& portName = port())
            : ToolTerminal(portName, {"shell"}, instrument().path("state"))
        {
        }
    };
};

TEST_F(ToolShell, RunsCommandsCompletesThemAndRemembersThem)
{
    {
        Terminal terminal;
        ASSERT_TRUE(terminal.shows("tessary> ")) << terminal.seen().constData();
        terminal.type("ver\t");
        ASSERT_TRUE(terminal.shows("sion ")) << terminal.seen().constData();
        terminal.type("\n");
        ASSERT_TRUE(terminal.shows("software  1.4")) << terminal.seen().constData();
        terminal.type("ebs na\t31\n");
        ASSERT_TRUE(terminal.shows("Service31")) << terminal.seen().constData();
        terminal.type("measure --wa\t\t");
        ASSERT_TRUE(terminal.shows("--watch  --wait")) << terminal.seen().constData();
        terminal.type("\x15nosuch\n"); // Ctrl-U empties the line
        ASSERT_TRUE(terminal.shows("not expected: nosuch")) << terminal.seen().constData();
        terminal.type("exit\n");
    }
    Terminal next;
    ASSERT_TRUE(next.shows("tessary> "));
    next.type("\x10\x10\x10\n"); // three lines back: ebs name 31
    ASSERT_TRUE(next.shows("Service31")) << next.seen().constData();
    next.type("exit\n");
}

TEST_F(ToolShell, UnpluggedInACommandItGoesOnWhenTheAdapterIsBack)
{
    const QString name = instrument().path("adapter"); // as udev names an adapter, wherever it is plugged in
    LineProxy::Faults faults;
    faults.pullAfterAnswer = 1;
    const LineProxy proxy(port().toStdString(), faults);
    ASSERT_TRUE(QFile::link(QString::fromStdString(proxy.path()), name));
    Terminal terminal(name);
    ASSERT_TRUE(terminal.shows("tessary> ")) << terminal.seen().constData();
    terminal.type("version\n");
    EXPECT_TRUE(terminal.shows("hung up")) << terminal.seen().constData();
    EXPECT_TRUE(terminal.shows("plug the adapter in again")) << terminal.seen().constData();
    EXPECT_TRUE(proxy.pulled());
    ASSERT_TRUE(QFile::remove(name) && QFile::link(port(), name));
    terminal.type("version\n");
    EXPECT_TRUE(terminal.shows("software  1.4")) << terminal.seen().constData();
    terminal.type("exit\n");
}

TEST_F(ToolShell, APipedScriptEndsAtItsFirstError)
{
    const QString script = instrument().path("script");
    QFile file(script);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("# a comment\nversion\nserver 'udp://239.0.0.1:1234' --json\nplay\nebs name 7\n");
    file.close();
    const CommandResult result =
        runCommand("/bin/bash", {"-c", QString("%1 --port %2 shell < %3").arg(toolPath(), port(), script)});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(result.output.contains("software  1.4"));
    EXPECT_TRUE(result.output.contains("\"server=UDP 239.0.0.1 1234\""));
    EXPECT_FALSE(result.output.contains("Service7"));
}

TEST_F(ToolShell, ServicesOfTheLastScanAreCompletedInQuotes)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    EXPECT_EQ(runCommand(toolPath(), {"__complete", "--port", port(), "play", "Tessary G"}).output,
        "Tessary Grün\n");
    Terminal terminal;
    ASSERT_TRUE(terminal.shows("tessary> ")) << terminal.seen().constData();
    terminal.type("play --wait 30 Tess\tG\t\n"); // two services begin with the same word
    EXPECT_TRUE(terminal.shows("running: program 2  Tessary Grün")) << terminal.seen().constData();
    terminal.type("exit\n");
}

/// What the completion of a shell offers, in that shell.
class ToolCompletion : public ToolShell, public testing::WithParamInterface<const char*>
{
protected:
    void SetUp() override
    {
        if (!QFile::exists(QString("/usr/bin/") + GetParam())
            && !QFile::exists(QString("/bin/") + GetParam()))
            GTEST_SKIP() << GetParam() << " is not installed; script/bootstrap installs it";
        qputenv("TESSARY_PORT", port().toLocal8Bit());
    }
    void TearDown() override
    {
        qunsetenv("TESSARY_PORT");
        ToolShell::TearDown();
    }

    static QByteArrayList completed(const QString& words)
    {
        const QString tests = TESSARY_SOURCE_DIR "/tests/tessaryctl/complete-with-";
        const QString file = TESSARY_SOURCE_DIR "/packaging/tessaryctl.";
        const CommandResult result =
            runCommand(tests + GetParam(), {file + GetParam(), toolPath() + " " + words});
        EXPECT_TRUE(result.ok()) << result.errors.constData();
        return result.output.trimmed().split('\n');
    }
    static bool is(const char* shell) { return QString(GetParam()) == shell; }
};

TEST_P(ToolCompletion, OffersServersSourcesServicesAndFiles)
{
    const RunningStream stream = sendStream(madeStream("demo.ts"));
    ASSERT_TRUE(tool({"scan", "udp://239.0.0.1:1234", "--no-pids"}).ok());
    EXPECT_EQ(completed("mea"), QByteArrayList{"measure"});
    EXPECT_EQ(completed("measure --wat"), QByteArrayList{"--watch"});
    EXPECT_EQ(completed("measure ud"), QByteArrayList{"udp://239.0.0.1:1234"});
    // Bash parts words at colons and asks for the last part alone.
    EXPECT_EQ(completed("measure udp://239"),
        QByteArrayList{is("bash") ? "//239.0.0.1:1234" : "udp://239.0.0.1:1234"});
    EXPECT_EQ(completed("scan --source "), (QByteArrayList{"ip", "fpga", "recording"}));
    EXPECT_EQ(completed("scan --source rec"), QByteArrayList{"recording"});
    const QByteArrayList services = completed("play ");
    EXPECT_EQ(services.size(), 3) << services.join('|').constData();
    EXPECT_TRUE(services[1].startsWith("Tessary")) << services.join('|').constData();
    EXPECT_EQ(completed("play \"Tessary G"), QByteArrayList{"Tessary Grün"});
    EXPECT_TRUE(completed("report " TESSARY_SOURCE_DIR "/READ").last().endsWith("README.md"));
}

INSTANTIATE_TEST_SUITE_P(Shells, ToolCompletion, testing::Values("bash", "zsh", "fish"),
    [](const auto& given) { return std::string(given.param); });

TEST_F(ToolShell, CompletionForOtherShellsListsCommandsAndOptions)
{
    EXPECT_EQ(runCommand(toolPath(), {"__complete", "me"}).output, "measure\n");
    EXPECT_EQ(runCommand(toolPath(), {"__complete", "interface", "st"}).output, "static\nstatus\n");
    EXPECT_EQ(runCommand(toolPath(), {"__complete", "measure", "--wat"}).output, "--watch\n");
}

} // namespace
