#include "toolsuite.h"

#include "client/controller.h"
#include "daemonlog.h"

namespace tessary::test {

using client::Milliseconds;

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
    client::SerialLine line = instrument().openController();
    line.discardInput();
    instrument().daemon("restart");
    client::Controller controller(line);
    controller.waitForGreeting(Milliseconds(60000));
    controller.settle();
    instrument().ethernetAddress(); // waits for it
}

CommandResult ToolSuite::toolOn(const QString& port, const QStringList& arguments, int milliseconds)
{
    return runCommand(toolPath(), QStringList{"--port", port} + arguments, milliseconds);
}

CommandResult ToolSuite::tool(const QStringList& arguments, int milliseconds)
{
    return toolOn(port(), arguments, milliseconds);
}

QJsonObject ToolSuite::toolJson(const QStringList& arguments, int milliseconds)
{
    const CommandResult result = tool(arguments + QStringList{"--json"}, milliseconds);
    EXPECT_TRUE(result.ok()) << arguments.join(' ').toStdString() << ": " << result.errors.constData();
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(result.output, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << result.output.constData();
    return document.object();
}

RunningStream ToolSuite::sendStream(const QString& file, const QStringList& options)
{
    return instrument().send(
        QStringList{file, "udp://239.0.0.1:1234", "--loop", "--interface", "uplink"} + options);
}

void expectFailure(const CommandResult& result, int status, const QByteArray& words)
{
    EXPECT_EQ(result.status, status) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains(words)) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("\n    ")) << "no remedy: " << result.errors.constData();
}

} // namespace tessary::test
