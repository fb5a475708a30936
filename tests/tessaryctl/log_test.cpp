#include "firstinturn.h"
#include "lineproxy.h"
#include "toolsuite.h"

#include <QDateTime>
#include <QFile>
#include <QRegularExpression>
#include <signal.h>

namespace {

using namespace tessary::test;

// Each waits for rows of the log. The server is not the one that the daemon has from its start, so that rows
// after a restart tell that it was set again.

class ToolLog : public ToolSuite
{
protected:
    static constexpr const char* server = "udp://239.0.0.2:1236";

    /// The stream that the logs are of.
    static RunningStream send(const QStringList& options = {"--bitrate", "10M"})
    {
        return instrument().send(
            QStringList{madeStream("demo.ts"), server, "--loop", "--interface", "uplink"} + options);
    }

    /// A log that runs, and the file that it writes.
    class Log
    {
    public:
        explicit Log(
            const QStringList& options = {}, const QString& name = "night.jsonl", const QString& on = port())
            : m_path(instrument().path(name))
            , m_before(rows().size())
        {
            m_process.start(
                toolPath(), QStringList{"--port", on, "log", "--output", m_path, server} + options);
            EXPECT_TRUE(m_process.waitForStarted(patienceMilliseconds));
        }

        std::vector<QJsonObject> rows() const
        {
            QFile file(m_path);
            std::vector<QJsonObject> all;
            if (!file.open(QIODevice::ReadOnly))
                return all;
            for (QByteArray line = file.readLine(); line.endsWith('\n'); line = file.readLine())
                all.push_back(QJsonDocument::fromJson(line).object());
            return all;
        }

        /// Waits for a row of this kind behind those that were waited for before.
        QJsonObject await(const QString& event)
        {
            QJsonObject found;
            EXPECT_TRUE(waitUntil([&] {
                const auto all = rows();
                for (std::size_t i = m_before; i < all.size(); ++i) {
                    if (all[i]["event"].toString() != event)
                        continue;
                    m_before = i + 1;
                    found = all[i];
                    return true;
                }
                return false;
            })) << event.toStdString()
                << " did not come: " << m_process.readAllStandardError().constData();
            return found;
        }

        void awaitFigures()
        {
            while (!await("period").contains("frame_bit_rate") && !testing::Test::HasFailure()) { }
        }

        void interrupt() { ::kill(static_cast<pid_t>(m_process.processId()), SIGINT); }

        /// Its exit status, once it has ended.
        int status()
        {
            EXPECT_TRUE(m_process.waitForFinished(patienceMilliseconds));
            m_errors = m_process.readAllStandardError();
            return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
        }

        const QByteArray& errors() const { return m_errors; }
        QString path() const { return m_path; }

    private:
        QString m_path;
        std::size_t m_before;
        GuardedProcess m_process;
        QByteArray m_errors;
    };

    void TearDown() override
    {
        QFile::remove(instrument().path("night.jsonl"));
        ToolSuite::TearDown();
    }
};

TEST_F(ToolLog, GoesOnOverALostLinkARestartAndAnotherStream)
{
    auto stream = std::make_unique<RunningStream>(send());
    Log log({"--on-loss", "--max-delay-factor", "5000"});
    EXPECT_EQ(log.await("start")["note"].toString(), "max-delay-factor=5000 on-loss");
    log.awaitFigures();

    instrument().setLink(false);
    EXPECT_EQ(log.await("no-link")["crossed"].toString(), "loss");
    instrument().setLink(true);
    EXPECT_EQ(log.await("gap")["note"].toString(), "no-link");
    log.awaitFigures();

    instrument().daemon("restart");
    log.await("no-answer");
    const QJsonObject gap = log.await("gap");
    EXPECT_EQ(gap["note"].toString(), "no-answer; the instrument has restarted");
    EXPECT_GT(gap["seconds"].toDouble(), 0);
    log.awaitFigures(); // the server has been set again

    stream.reset();
    EXPECT_EQ(log.await("absent")["present"].toInt(-1), 0);
    stream = std::make_unique<RunningStream>(send({"--bitrate", "4M", "--packets", "5"}));
    EXPECT_EQ(log.await("gap")["note"].toString(), "absent");
    EXPECT_TRUE(log.await("changed")["note"].toString().contains("5 × 188 bytes now"));
    log.awaitFigures();

    log.interrupt();
    EXPECT_EQ(log.status(), 30) << log.errors().constData();
    EXPECT_TRUE(log.errors().contains("limits crossed (rows): loss in ")) << log.errors().constData();
    EXPECT_TRUE(log.await("end")["note"].toString().startsWith("interrupted; "));
    EXPECT_EQ(log.rows().back()["event"].toString(), "end");
}

TEST_F(ToolLog, GoesOnWhenTheAdapterIsPluggedInAgain)
{
    const RunningStream stream = send();
    const QString name = instrument().path("adapter");
    LineProxy::Faults faults;
    faults.pullAfterAnswer = 30000; // some five seconds
    auto proxy = std::make_unique<LineProxy>(port().toStdString(), faults);
    ASSERT_TRUE(QFile::link(QString::fromStdString(proxy->path()), name));
    Log log({}, "night.jsonl", name);
    log.awaitFigures();
    EXPECT_EQ(log.await("no-answer")["note"].toString(), "the port is gone");
    EXPECT_TRUE(proxy->pulled());
    ASSERT_TRUE(QFile::remove(name));
    proxy.reset();
    ASSERT_TRUE(QFile::link(port(), name));
    EXPECT_TRUE(log.await("gap")["note"].toString().startsWith("no-answer; "));
    log.awaitFigures();
    log.interrupt();
    EXPECT_EQ(log.status(), 0) << log.errors().constData();
    QFile::remove(name);
}

TEST_F(ToolLog, ARowHasAllFiguresAndTheTimeWithItsZone)
{
    const FirstInTurn first(instrument().daemonPid());
    const RunningStream stream = send();
    const QString path = instrument().path("figures.csv");
    for (int part = 0; part < 2; ++part) {
        const CommandResult result = tool({"log", server, "-o", path, "--duration", "9"});
        EXPECT_EQ(result.status, 0) << result.errors.constData();
        EXPECT_TRUE(result.output.isEmpty());
    }
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = file.readAll().trimmed().split('\n');
    const QList<QByteArray> columns = lines[0].split(',');
    int periods = 0;
    QByteArrayList events;
    for (const QByteArray& line : lines.mid(1)) {
        const QList<QByteArray> fields = line.split(',');
        const auto field = [&](const char* column) { return fields.value(columns.indexOf(column)); };
        events.push_back(field("event"));
        EXPECT_TRUE(
            QRegularExpression("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d$")
                .match(field("time"))
                .hasMatch())
            << line.constData();
        if (field("event") != "period")
            continue;
        ++periods;
        EXPECT_EQ(field("server"), server);
        EXPECT_NEAR(field("ts_bit_rate").toDouble(), 10e6, 3e5);
        EXPECT_NEAR(field("frame_bit_rate").toDouble(), 10e6 * 1358 / 1316, 3e5);
        EXPECT_EQ(field("present"), "1");
        EXPECT_EQ(field("continuity_errors"), "0");
        EXPECT_GE(field("iat_longest_us").toDouble(), field("iat_p99_us").toDouble());
        EXPECT_GE(field("iat_p99_us").toDouble(), field("iat_median_us").toDouble());
        if (field("iat_count").isEmpty())
            continue; // of periods that look alike only the last has them
        EXPECT_NEAR(field("iat_count").toInt(), 950, 250) << "a row may be 0.2 s late";
    }
    EXPECT_GE(periods, 6);
    EXPECT_EQ(lines.count(lines[0]), 1) << "one header";
    EXPECT_EQ(events.count("start"), 1);
    EXPECT_EQ(events.count("resumed"), 1);
    EXPECT_EQ(events.count("end"), 2);
}

TEST_F(ToolLog, TheErrorsOfAllRowsAreThoseThatWereSent)
{
    const FirstInTurn first(instrument().daemonPid());
    const Log log;
    RunningStream stream = send({"--bitrate", "10M", "--cc-errors-per-second", "3", "--cc-errors-from", "8",
        "--cc-errors-for", "15", "--duration", "27", "--json"});
    ASSERT_TRUE(stream.waitUntilSent()) << stream.errors().constData();
    int errors = 0;
    for (const QJsonObject& row : log.rows())
        errors += row["continuity_errors"].toInt();
    EXPECT_EQ(errors, QJsonDocument::fromJson(stream.output()).object()["injected_cc_errors"].toInt());
}

TEST_F(ToolLog, LimitsAndNothingAtAllHaveAnExitStatus)
{
    expectFailure(tool({"log", "udp://239.0.0.99:999", "--duration", "2"}), 6, "no period");
    const RunningStream stream = send({"--bitrate", "10M", "--cc-errors-per-second", "4"});
    Log log({"--max-errors", "1"});
    EXPECT_EQ(log.await("period")["crossed"].toString(), "errors");
    log.interrupt();
    EXPECT_EQ(log.status(), 30);
    EXPECT_TRUE(log.errors().contains("errors in ")) << log.errors().constData();
    expectFailure(tool({"log", "-o", "/nosuch/night.csv"}), 9, "cannot open /nosuch/night.csv");
    EXPECT_EQ(tool({"log", "--min-rate", "fast"}).status, 2);
}

} // namespace
