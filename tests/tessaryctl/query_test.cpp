#include "burstline.h"
#include "toolsuite.h"

#include <QDateTime>
#include <QFile>
#include <QRegularExpression>

namespace {

using namespace tessary::test;

// Sub-commands that ask the instrument itself, in text and in JSON.

class ToolQueries : public ToolSuite
{
};

TEST_F(ToolQueries, VersionTellsSoftwareAndFpga)
{
    const CommandResult text = tool({"version"});
    EXPECT_TRUE(text.ok()) << text.errors.constData();
    EXPECT_TRUE(text.output.contains("software  1.4\n")) << text.output.constData();
    EXPECT_TRUE(text.output.contains(", configured\n")) << text.output.constData();
    const QJsonObject json = toolJson({"version"});
    EXPECT_EQ(json["software"].toString(), "1.4");
    EXPECT_TRUE(json["fpga_configured"].toBool());
    EXPECT_TRUE(text.output.contains(QDateTime::fromString(json["fpga_built"].toString(), Qt::ISODate)
                                         .toString("d/M/yyyy h:m:s")
                                         .toUtf8()))
        << text.output.constData();
}

TEST_F(ToolQueries, StatusTellsPlayerEthernetAndRecording)
{
    restartDaemon();
    const QByteArray text = tool({"status"}).output;
    EXPECT_TRUE(text.contains("player     no source selected\n")) << text.constData();
    EXPECT_TRUE(text.contains("Ethernet   192.168.77.")) << text.constData();
    EXPECT_TRUE(text.contains("recording  none\n")) << text.constData();
    const QJsonObject json = toolJson({"status"});
    EXPECT_TRUE(json["player"].isNull());
    EXPECT_EQ(json["interface"].toObject()["address"].toString(), instrument().ethernetAddress());
    EXPECT_EQ(json["recording_bytes"].toInt(-1), 0);
    EXPECT_EQ(json["version"].toObject()["software"].toString(), "1.4");
}

TEST_F(ToolQueries, InterfaceIsShownSetAndShownInFull)
{
    EXPECT_EQ(tool({"interface"}).output, instrument().ethernetAddress().toUtf8() + " 255.255.255.0\n");
    EXPECT_EQ(toolJson({"interface"})["mask"].toString(), "255.255.255.0");
    EXPECT_TRUE(tool({"interface", "status"}).output.contains("Speed: "));
    const QJsonObject status = toolJson({"interface", "status"});
    EXPECT_EQ(status["address"].toString(), instrument().ethernetAddress());
    EXPECT_TRUE(status["flags"].toArray().contains("RUNNING"));
    EXPECT_EQ(status["speed_mbps"].toInt(), 10000); // a veth pair's
    EXPECT_EQ(status["duplex"].toString(), "full");
    EXPECT_TRUE(status["link_detected"].toBool());

    const CommandResult set = tool({"interface", "static", "192.168.77.42", "255.255.255.0"});
    EXPECT_TRUE(set.ok()) << set.errors.constData();
    EXPECT_EQ(toolJson({"interface"})["address"].toString(), "192.168.77.42");
    EXPECT_EQ(
        toolJson({"interface", "static", "192.168.77.43", "255.255.255.0"})["connected"].toBool(), true);
    EXPECT_TRUE(waitUntil([] { return tool({"interface"}).output.startsWith("192.168.77.43 "); }));
    EXPECT_TRUE(tool({"interface", "dhcp"}).ok());
    EXPECT_TRUE(waitUntil([] { return tool({"interface"}).output.startsWith("192.168.77.1"); }));
}

TEST_F(ToolQueries, AnUnpluggedNetworkCableHasAStatusOfItsOwn)
{
    instrument().setLink(false);
    EXPECT_TRUE(waitUntil([] { return tool({"interface"}).status == 7; }));
    expectFailure(tool({"interface"}), 7, "Ethernet is not connected");
    expectFailure(tool({"measure"}), 7, "Ethernet is not connected");
    expectFailure(tool({"iat"}), 7, "Ethernet is not connected");
    expectFailure(tool({"interface", "--json"}), 7, "Ethernet is not connected");
    EXPECT_EQ(toolJson({"status"})["interface"].toObject()["connected"], QJsonValue(false));
    instrument().setLink(true);
    EXPECT_TRUE(waitUntil([] { return tool({"interface"}).output.startsWith("192.168.77."); }));
}

TEST_F(ToolQueries, ServerIsSetInWordsAndAsUrl)
{
    EXPECT_TRUE(
        tool({"server", "rtp", "239.0.0.9", "5004"}).output.startsWith("stream server rtp://239.0.0.9:5004"));
    const QJsonObject json = toolJson({"server", "udp+t2mi://239.0.0.8:5004?pid=4096&plp=1"});
    EXPECT_EQ(json["command"].toString(), "server=UDP_T2MI 239.0.0.8 5004 4096 1");
    expectFailure(tool({"server"}), 6, "keeps its stream server to itself");
    expectFailure(tool({"server", "tcp://1.2.3.4:5"}), 2, "protocol \"tcp\"");
}

TEST_F(ToolQueries, PingShowsWhatTheInstrumentsPingPrints)
{
    EXPECT_TRUE(
        tool({"ping", "192.168.77.1", "-c", "1"}).output.contains("1 packets transmitted, 1 received"));
    const QJsonObject json = toolJson({"ping", "192.168.77.1", "-c", "2"});
    EXPECT_EQ(json["received"].toInt(), 2);
    EXPECT_EQ(json["replies"].toArray().size(), 2);
    EXPECT_GT(json["round_trip_ms"]["mean"].toDouble(), 0);
    expectFailure(tool({"ping", "192.168.77.250", "-c", "1"}), 6, "does not answer");
}

TEST_F(ToolQueries, CommandRunsOnTheInstrument)
{
    EXPECT_TRUE(tool({"command", "echo one > /run/bench/one"}).ok());
    QFile file(instrument().sharedFile("one"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "one\n");
    EXPECT_GE(toolJson({"command", "sleep 1"})["seconds"].toDouble(), 1.0);
}

TEST_F(ToolQueries, CommandShowsOutputAndStatusWhenAsked)
{
    const CommandResult shown = tool({"command", "--output", "echo it\\'s; echo one >&2; printf '[0:x]'"});
    EXPECT_EQ(shown.output, "it's\none\n[0:x]");
    EXPECT_TRUE(shown.ok()) << shown.errors.constData();
    const QByteArray many = tool({"command", "-o", "seq 20000"}).output; // more than the line's buffers hold
    EXPECT_EQ(many.count('\n'), 20000);
    EXPECT_TRUE(many.endsWith("\n20000\n"));
    EXPECT_TRUE(tool({"command", "--output", "cat"}).ok()) << "nothing is there to be read";
    expectFailure(tool({"command", "--output", "exit 3"}), 12, "exit status 3");
    expectFailure(tool({"command", "--output", "nosuchprogram"}), 12, "exit status 127");
    const QJsonObject json = toolJson({"command", "--output", "echo one"});
    EXPECT_EQ(json["output"].toString(), "one\n");
    EXPECT_EQ(json["status"].toInt(-1), 0);
    const CommandResult failed = tool({"command", "--json", "--output", "echo why; exit 4"});
    EXPECT_EQ(failed.status, 12);
    EXPECT_EQ(QJsonDocument::fromJson(failed.output)["output"].toString(), "why\n");
    EXPECT_EQ(QJsonDocument::fromJson(failed.output)["status"].toInt(), 4);
    expectFailure(tool({"command", "--output", QString(501, 'x')}), 2, "too long for the line");
    expectFailure(tool({"command", "echo one\necho two"}), 2, "a command is one line");
    EXPECT_TRUE(tool({"version"}).ok());
}

TEST_F(ToolQueries, VersionRightAfterAStartKnowsTheGreeting)
{
    ASSERT_TRUE(tool({"server", "udp://239.0.0.9:5004"}).ok());
    EXPECT_FALSE(toolJson({"version"})["started"].toBool(true));
    instrument().daemon("restart");
    const CommandResult first = tool({"version"});
    EXPECT_TRUE(first.output.startsWith("software  1.4\n"))
        << first.output.constData() << first.errors.constData();
    EXPECT_TRUE(first.errors.contains("the instrument has started")) << first.errors.constData();
    EXPECT_FALSE(toolJson({"version"})["started"].toBool(true));
    instrument().daemon("restart");
    EXPECT_TRUE(toolJson({"version"})["started"].toBool());
    instrument().ethernetAddress();
}

TEST_F(ToolQueries, RawSendsAnythingAndShowsTheAnswer)
{
    EXPECT_TRUE(tool({"raw", "version?"}).output.startsWith("SV: mx8 1.4 FPGA: "));
    EXPECT_EQ(toolJson({"raw", "!16_O_AX:40"})["text"].toString(), "*07_o.$");
    EXPECT_TRUE(tool({"raw", "--hex", "76 65 72 73 69 6f 6e 3f 0a"}).output.startsWith("SV: mx8 1.4"));
    EXPECT_TRUE(tool({"raw", "--dump", "!16_O_AX:40"}).output.startsWith("000000  2a 30 37 5f 6f 2e 24 "));
    const CommandResult silent = tool({"raw", "nosuchcommand"});
    EXPECT_TRUE(silent.ok());
    EXPECT_TRUE(silent.errors.contains("no answer"));
}

TEST_F(ToolQueries, EverySubcommandHasHelp)
{
    for (const char* name : {"scan", "play", "info", "status", "measure", "iat", "server", "interface",
             "ping", "record", "export", "t2mi-frame", "send-ts", "ebs", "dab", "update", "version",
             "command", "raw", "schema", "shell"}) {
        const CommandResult help = tool({name, "--help"});
        EXPECT_TRUE(help.ok()) << name;
        EXPECT_TRUE(help.output.contains("--timeout")) << name;
    }
}

TEST_F(ToolQueries, ASubcommandsHelpIsItsOwn)
{
    EXPECT_TRUE(tool({"--help"}).output.contains("Exit status: "));
    EXPECT_FALSE(tool({"scan", "--help"}).output.contains("Exit status: "));
    EXPECT_FALSE(tool({"interface", "static", "--help"}).output.contains("A first session"));
    EXPECT_EQ(tool({"--version"}).output, "tessaryctl 1.4\n");
}

TEST_F(ToolQueries, WrongArgumentsAreSaidAndEndWithTwo)
{
    expectFailure(tool({"vresion"}), 2, "did you mean version? see: tessaryctl --help");
    expectFailure(tool({"interface", "dchp"}), 2, "did you mean dhcp? see: tessaryctl interface --help");
    expectFailure(tool({"measure", "--wathc"}), 2, "did you mean --watch? see: tessaryctl measure --help");
    EXPECT_FALSE(tool({"elephant"}).errors.contains("did you mean"));
    expectFailure(tool({"nosuch"}), 2, "nosuch");
    expectFailure(tool({"play"}), 2, "program is required");
    expectFailure(tool({"version", "--nosuch"}), 2, "--nosuch");
    expectFailure(tool({"measure", "--count", "2"}), 2, "--watch");
    expectFailure(tool({"measure", "--interval", "2"}), 2, "--watch");
    expectFailure(tool({"interface", "static", "1.2.3", "255.0.0.0"}), 2, "1.2.3");
}

TEST_F(ToolQueries, WithJsonAFailureIsAnObjectToo)
{
    const auto errorOf = [](const CommandResult& result) {
        return QJsonDocument::fromJson(result.output).object()["error"].toObject();
    };
    const QJsonObject wrong = errorOf(tool({"measure", "--json", "--nosuch"}));
    EXPECT_EQ(wrong["kind"].toString(), "usage");
    EXPECT_TRUE(wrong["cause"].toString().contains("--nosuch"));
    EXPECT_EQ(wrong["remedy"].toString(), "see: tessaryctl measure --help");
    EXPECT_EQ(errorOf(tool({"server", "--json"}))["kind"].toString(), "nothing");
    EXPECT_EQ(errorOf(toolOn("/nosuch", {"version", "--json"}))["kind"].toString(), "no-instrument");
    EXPECT_EQ(toolJson({})["port"].toString(), port());
}

TEST_F(ToolQueries, WithoutInstrumentItSaysHowToStartOne)
{
    for (const QStringList& arguments :
        {QStringList{}, QStringList{"version"}, QStringList{"scan", "--json"}}) {
        const CommandResult result = toolOn("/run/no-such-instrument/controller", arguments);
        expectFailure(result, 3, "cannot open port /run/no-such-instrument/controller: No such file");
        EXPECT_TRUE(result.errors.contains("sudo bench/instrument run"));
    }
    expectFailure(toolOn("/etc/hostname", {"version"}), 3, "/etc/hostname is not a serial port");
}

TEST_F(ToolQueries, APortInUseIsLeftAlone)
{
    BurstLine line(instrument());
    line.lock();
    expectFailure(tool({"version"}), 3, "is in use by another program");
}

TEST_F(ToolQueries, ADaemonThatDoesNotAnswerIsATimeOut)
{
    instrument().daemon("stop");
    for (const QStringList& arguments :
        {QStringList{"version"}, QStringList{"info"}, QStringList{"play", "1"}, QStringList{"measure"}})
        expectFailure(tool(QStringList{"--timeout", "1"} + arguments), 4, "answer");
    restartDaemon();
}

} // namespace
