#include "lineproxy.h"
#include "toolsuite.h"

namespace {

using namespace tessary::test;
using Faults = LineProxy::Faults;

// The plug is pulled in the middle of every sub-command: behind its first command byte, behind the whole
// first command, and behind the first byte of an answer. Each ends with status 5 and names cause and remedy.

struct Unplugged
{
    const char* name;
    QStringList arguments;
    int timeout = 5; ///< seconds
};

void PrintTo(const Unplugged& value, std::ostream* out)
{
    *out << value.name;
}

class ToolUnplugged : public ToolSuite, public testing::WithParamInterface<Unplugged>
{
protected:
    static void SetUpTestSuite()
    {
        ToolSuite::SetUpTestSuite();
        instrument().shell("head -c 188000 /dev/zero > /run/media/mmcblk1p1/record.ts"); // for export
        runCommand(TESSARY_SOURCE_DIR "/bench/counterparts/make-package",
            {"--bytes", "3000", instrument().path("small.deb")});
    }

    static void expectHangUp(Faults faults)
    {
        QStringList arguments = GetParam().arguments;
        arguments.replaceInStrings("PACKAGE", instrument().path("small.deb"));
        const LineProxy proxy(port().toStdString(), faults);
        const CommandResult result = run(QString::fromStdString(proxy.path()),
            QStringList{"--timeout", QString::number(GetParam().timeout)} + arguments);
        EXPECT_TRUE(proxy.pulled());
        expectFailure(result, 5, "hung up");
        EXPECT_TRUE(result.errors.contains("plug the adapter in again")) << result.errors.constData();
    }

    /// The shell gets a command typed in.
    static CommandResult run(const QString& path, const QStringList& arguments)
    {
        if (arguments.last() != "shell")
            return toolOn(path, arguments);
        const QString line = "echo version | \"$0\" --port \"$@\"";
        return runCommand("/bin/bash", QStringList{"-c", line, toolPath(), path} + arguments);
    }

    /// The daemon waits 10 s for the rest of an update that was cut off, and takes anything for it.
    static bool noUpdateIsUnderWay()
    {
        const QByteArray log = instrument().daemonLog();
        return log.count("UPDate") == log.count("Waiting bytes too long time !");
    }

    /// Until the daemon answers again.
    void TearDown() override
    {
        EXPECT_TRUE(waitUntil(noUpdateIsUnderWay));
        tool({"raw", "x"}); // ends a command that was cut short
        EXPECT_TRUE(waitUntil([] { return tool({"version", "--timeout", "2"}).ok(); }));
        if (GetParam().arguments == QStringList{"dab", "start"})
            tool({"dab", "stop"}); // the next commands find the mode they expect
        ToolSuite::TearDown();
    }
};

TEST_P(ToolUnplugged, WhileTheCommandGoesOut)
{
    Faults faults;
    faults.pullAfterCommand = 1;
    expectHangUp(faults);
}

TEST_P(ToolUnplugged, WhileTheAnswerComesIn)
{
    constexpr std::int64_t inStep = 10; // the answer to the first mark; raw and update begin without one
    Faults faults;
    faults.pullAfterAnswer = inStep + 1;
    expectHangUp(faults);
}

INSTANTIATE_TEST_SUITE_P(Commands, ToolUnplugged,
    testing::Values(Unplugged{"version", {"version"}}, Unplugged{"status", {"status"}},
        Unplugged{"server", {"server", "udp://239.0.0.1:1234"}}, Unplugged{"scan", {"scan"}},
        Unplugged{"play", {"play", "1"}}, Unplugged{"info", {"info"}}, Unplugged{"measure", {"measure"}},
        Unplugged{"watch", {"measure", "--watch"}}, Unplugged{"iat", {"iat"}},
        Unplugged{"interface", {"interface"}},
        Unplugged{"interfaceStatic", {"interface", "static", "192.168.1.20", "255.255.255.0"}},
        Unplugged{"interfaceDhcp", {"interface", "dhcp"}},
        Unplugged{"interfaceStatus", {"interface", "status"}}, Unplugged{"ping", {"ping", "127.0.0.1"}},
        Unplugged{"record", {"record", "start"}}, Unplugged{"export", {"export"}},
        Unplugged{"recordStop", {"record", "stop"}}, Unplugged{"recordStatus", {"record", "status"}},
        Unplugged{"t2miFrame", {"t2mi-frame"}}, Unplugged{"sendTs", {"send-ts"}},
        Unplugged{"ebsStatus", {"ebs", "status"}}, Unplugged{"ebsPlay", {"ebs", "play", "1"}},
        Unplugged{"ebsScan", {"ebs", "scan"}}, Unplugged{"ebsInfo", {"ebs", "info"}},
        Unplugged{"ebsName", {"ebs", "name", "31"}}, Unplugged{"ebsAudio", {"ebs", "audio", "64"}},
        Unplugged{"ebsVersion", {"ebs", "version"}},
        Unplugged{"dabStart", {"dab", "start"}, 15}, // it answers when the receiver runs, after some seconds
        Unplugged{"dabSend", {"dab", "send", "x"}}, Unplugged{"dabStop", {"dab", "stop"}},
        Unplugged{"command", {"command", "true"}}, Unplugged{"raw", {"raw", "version?"}},
        Unplugged{"shell", {"shell"}}, Unplugged{"update", {"update", "PACKAGE"}}),
    [](const auto& given) { return std::string(given.param.name); });

} // namespace
