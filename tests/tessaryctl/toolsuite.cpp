#include "toolsuite.h"

#include "burstline.h"
#include "daemonlog.h"
#include "jsoncontract.h"

namespace tessary::test {

std::unique_ptr<Instrument> ToolSuite::s_instrument;

std::vector<QJsonValue> elements(const QJsonValue& array)
{
    const QJsonArray values = array.toArray();
    return {values.begin(), values.end()};
}

QString toolPath()
{
    return QStringLiteral(TESSARYCTL);
}

void ToolSuite::SetUpTestSuite()
{
    s_instrument = std::make_unique<Instrument>(QStringList{"--card", "64M"});
    qputenv("XDG_STATE_HOME", instrument().path("state").toLocal8Bit()); // what the tool remembers
    restartDaemon();
}

void ToolSuite::TearDownTestSuite()
{
    if (s_instrument == nullptr)
        return;
    const QByteArray finding = sanitizerFinding(s_instrument->daemonLog());
    EXPECT_TRUE(finding.isEmpty()) << finding.constData();
    s_instrument.reset();
}

void ToolSuite::TearDown()
{
    ASSERT_NE(instrument().daemonPid(), 0) << "the daemon has ended; its last words:\n"
                                           << instrument().daemonLog().right(3000).constData();
}

void ToolSuite::restartDaemon()
{
    BurstLine line(instrument());
    line.discardInput();
    instrument().daemon("restart");
    client::Controller(line).waitForGreeting(BurstLine::patience);
    line.finish();
    instrument().ethernetAddress(); // waits for it
}

CommandResult ToolSuite::toolOn(const QString& port, const QStringList& arguments)
{
    CommandResult result = runCommand(toolPath(), QStringList{"--port", port} + arguments);
    if (arguments.contains("--json"))
        expectContract(arguments, result);
    return result;
}

CommandResult ToolSuite::tool(const QStringList& arguments)
{
    return toolOn(port(), arguments);
}

std::unique_ptr<GuardedProcess> ToolSuite::startTool(const QStringList& arguments)
{
    auto process = std::make_unique<GuardedProcess>();
    process->start(toolPath(), QStringList{"--port", port()} + arguments);
    EXPECT_TRUE(process->waitForStarted());
    return process;
}

QJsonObject ToolSuite::toolJson(const QStringList& arguments)
{
    const CommandResult result = tool(arguments + QStringList{"--json"});
    EXPECT_TRUE(result.ok()) << arguments.join(' ').toStdString() << ": " << result.errors.constData();
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(result.output, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << result.output.constData();
    return document.object();
}

RunningStream ToolSuite::sendStream(const QString& file, const QStringList& options, qint64 bytes)
{
    const auto arrived = [] {
        return instrument().shell("cat /sys/class/net/eth0/statistics/rx_bytes").trimmed().toLongLong();
    };
    const qint64 before = arrived();
    RunningStream stream = instrument().send(
        QStringList{file, "udp://239.0.0.1:1234", "--loop", "--interface", "uplink"} + options);
    EXPECT_TRUE(waitUntil([&] { return arrived() > before + bytes; })) << stream.errors().constData();
    return stream;
}

void expectFailure(const CommandResult& result, int status, const QByteArray& words)
{
    EXPECT_EQ(result.status, status) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains(words)) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("\n    ")) << "no remedy: " << result.errors.constData();
}

} // namespace tessary::test
