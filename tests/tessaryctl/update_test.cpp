#include "lineproxy.h"
#include "toolsuite.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

namespace {

using namespace tessary::test;
using Faults = LineProxy::Faults;

// Each way an update can end, over a line that makes it end so.

class ToolUpdate : public ToolSuite
{
protected:
    void SetUp() override
    {
        restartDaemon();
        m_logStart = instrument().daemonLog().size();
    }

    QByteArray log() const { return instrument().daemonLog().mid(m_logStart); }

    /// A package with a payload of so many bytes.
    static QString makePackage(int payloadBytes)
    {
        QString file = instrument().path("update.deb");
        const CommandResult made = runCommand(TESSARY_SOURCE_DIR "/bench/counterparts/make-package",
            {"--bytes", QString::number(payloadBytes), file});
        EXPECT_TRUE(made.ok()) << made.errors.constData();
        return file;
    }

    static CommandResult update(const LineProxy& proxy, const QString& file, const QStringList& options = {})
    {
        return toolOn(QString::fromStdString(proxy.path()), QStringList{"update", file} + options);
    }

    static bool isInstalled()
    {
        return instrument()
            .exec({"dpkg", "-s", "tessary-update"})
            .output.contains("Status: install ok installed");
    }

    /// Positions on the line: "update N\n" comes first.
    static std::int64_t command(const QString& file)
    {
        return static_cast<std::int64_t>(
            QByteArray("update \n").size() + QByteArray::number(QFile(file).size()).size());
    }

private:
    int m_logStart = 0;
};

TEST_F(ToolUpdate, AMegabyteOver115200BaudShowsProgressAndSucceeds)
{
    const QString file = makePackage(1000000);
    Faults faults;
    faults.bytesPerSecond = 11520;
    const LineProxy proxy(port().toStdString(), faults);
    QElapsedTimer clock;
    clock.start();
    const CommandResult result = update(proxy, file);
    EXPECT_TRUE(result.ok()) << result.errors.constData();
    EXPECT_TRUE(result.output.startsWith("update ok: 1.0")) << result.output.constData();
    EXPECT_GE(clock.elapsed(), 1000000 * 1000LL / 11520) << "the line carries no more than that";
    EXPECT_TRUE(result.errors.contains("sending 50 %")) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("kB/s, ")) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains(" left\n")) << result.errors.constData();
    EXPECT_TRUE(isInstalled());
    std::cout << result.errors.constData() << result.output.constData();
}

TEST_F(ToolUpdate, JsonTellsWhatWasSent)
{
    const QString file = makePackage(20000);
    const QJsonObject json = toolJson({"update", file, "--rate", "100000"});
    EXPECT_TRUE(json["installed"].toBool());
    EXPECT_EQ(json["bytes"].toDouble(), static_cast<double>(QFile(file).size()));
}

TEST_F(ToolUpdate, AFileThatIsNoPackageIsNotSent)
{
    expectFailure(tool({"update", "/nosuch.deb"}), 9, "cannot read /nosuch.deb: No such file");
    expectFailure(tool({"update", "/etc/passwd"}), 9, "no Debian package");
    expectFailure(tool({"update", "/dev/null"}), 9, "empty");
}

TEST_F(ToolUpdate, AnUpdateThatIsNotTakenUpHasStatus20)
{
    const QString file = makePackage(5000);
    Faults faults;
    faults.dropFrom = 0;
    faults.dropCount = command(file);
    const LineProxy proxy(port().toStdString(), faults);
    expectFailure(update(proxy, file, {"--timeout", "2"}), 20, "waiting update");
}

TEST_F(ToolUpdate, ADamagedByteIsRefusedWithStatus21)
{
    const QString file = makePackage(20000);
    Faults faults;
    faults.damageAt = command(file) + 10000;
    const LineProxy proxy(port().toStdString(), faults);
    expectFailure(update(proxy, file, {"--rate", "100000"}), 21, "refused the package");
}

TEST_F(ToolUpdate, LostBytesHaveStatus22)
{
    const QString file = makePackage(20000);
    Faults faults;
    faults.dropFrom = command(file) + 10000;
    faults.dropCount = 300;
    const LineProxy proxy(port().toStdString(), faults);
    expectFailure(update(proxy, file, {"--rate", "100000"}), 22, "bytes were lost");
}

TEST_F(ToolUpdate, ARestartInTheMiddleHasStatus23)
{
    const QString file = makePackage(60000);
    {
        const LineProxy proxy(port().toStdString(), Faults{});
        std::thread restart([&] {
            while (proxy.toDaemon() < 20000)
                QThread::msleep(10);
            instrument().daemon("kill");
            instrument().daemon("start");
        });
        expectFailure(update(proxy, file), 23, "restarted during the update");
        restart.join();
    } // the proxy would take the next greeting
    restartDaemon();
}

TEST_F(ToolUpdate, AnInstallationThatTakesTooLongHasStatus24)
{
    const QString file = makePackage(5000);
    instrument().misbehave({"dpkg", "--when=--force-all", "--delay", "12", "--times", "1"});
    const CommandResult result = tool({"update", file, "--rate", "100000", "--install-timeout", "4"});
    instrument().misbehave({"dpkg", "--real"});
    expectFailure(result, 24, "no \"update ok\" came within 4 s");
    EXPECT_TRUE(waitUntil([] { return tool({"version"}).ok(); }));
}

TEST_F(ToolUpdate, APulledPlugHasStatus5)
{
    const QString file = makePackage(50000);
    Faults faults;
    faults.pullAfterCommand = command(file) + 20000;
    const LineProxy proxy(port().toStdString(), faults);
    expectFailure(update(proxy, file, {"--rate", "100000"}), 5, "hung up");
    // The daemon waits for the rest and gives up after 10 s; a question before that would count as a part of
    // it.
    EXPECT_TRUE(waitUntil([this] { return log().contains("Waiting bytes too long time !"); }));
    EXPECT_TRUE(tool({"version"}).ok());
}

TEST_F(ToolUpdate, ADaemonThatIsNotThereHasStatus4)
{
    const QString file = makePackage(5000);
    instrument().daemon("stop");
    expectFailure(tool({"update", file, "--timeout", "1"}), 4, "no answer on port");
    restartDaemon();
}

} // namespace
