#include "hardwaresuite.h"

#include "daemonlog.h"

#include <ctime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <stdexcept>

namespace tessary::test {

namespace {

const QString bitfileMaker = QStringLiteral(TESSARY_SOURCE_DIR "/bench/counterparts/make-bitfile");

std::int64_t now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

} // namespace

std::unique_ptr<Instrument> HardwareSuite::s_instrument;

void HardwareSuite::SetUpTestSuite()
{
    s_instrument = std::make_unique<Instrument>(QStringList{"--card", "600M"});
}

void HardwareSuite::TearDownTestSuite()
{
    s_instrument.reset();
}

void HardwareSuite::SetUp()
{
    resetKnobs();
    makeBitfile();
    instrument().shell("rm -f /run/media/mmcblk1p1/* /run/bench/dab*");
    m_notesStart = hardwareFile("fpga.log").size();
}

void HardwareSuite::TearDown()
{
    m_line.reset();
    EXPECT_NE(instrument().daemonPid(), 0) << "the daemon has ended; its last words:\n"
                                           << log().right(3000).constData();
    if (instrument().daemonPid() != 0)
        instrument().daemon("stop");
    const QByteArray finding = sanitizerFinding(log());
    EXPECT_TRUE(finding.isEmpty()) << finding.constData();
}

void HardwareSuite::startDaemon()
{
    m_line.emplace(instrument());
    m_line->discardInput();
    m_logStart = instrument().daemonLog().size();
    m_started = now();
    instrument().daemon("start");
    client::Controller(*m_line).waitForGreeting(BurstLine::patience);
    m_line->finish();
    m_line->finish(); // the cycle of the first answer starts the multicast routing, which takes its time
}

bool HardwareSuite::logged(const QByteArray& text) const
{
    return waitUntil([&] { return log().contains(text); });
}

QStringList HardwareSuite::shellCommands() const
{
    QStringList found;
    for (const RecordedCommand& command : instrument().commands()) {
        if (command.time >= m_started && command.kind == "shell" && command.parent == "tessary")
            found << command.text();
    }
    return found;
}

void HardwareSuite::setKnob(const QByteArray& knob)
{
    writeContent(instrument().path("fpga/knobs"), knob + "\n");
}

void HardwareSuite::resetKnobs()
{
    setKnob("spi-fail=0\nconfigured=0\ndone-stuck=0\nexport-rate=-1\nexport-fails=0\nexport-absent=0");
}

QList<QByteArray> HardwareSuite::notes(const QByteArray& what) const
{
    const QByteArray kind = "\"what\": \"" + what + "\", ";
    QList<QByteArray> found;
    for (const QByteArray& note : hardwareFile("fpga.log").mid(m_notesStart).split('\n')) {
        const int at = note.indexOf(kind);
        if (at >= 0)
            found << note.mid(at + kind.size()).chopped(1);
    }
    return found;
}

QByteArray HardwareSuite::hardwareFile(const QString& name)
{
    return contentOf(instrument().path("hardware/" + name));
}

QByteArray HardwareSuite::makeBitfile(const QStringList& options)
{
    const QString file = instrument().sharedFile("Tessary.bit");
    const CommandResult made = runCommand(bitfileMaker, QStringList(options) << file);
    if (!made.ok())
        throw std::runtime_error("make-bitfile: " + made.errors.toStdString());
    instrument().shell(
        "rm -rf /home/ondrak/Tessary/Tessary.bit && cp /run/bench/Tessary.bit /home/ondrak/Tessary/");
    return contentOf(file);
}

void writeContent(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || file.write(bytes) != bytes.size())
        throw std::runtime_error(
            "can not write " + path.toStdString() + ": " + file.errorString().toStdString());
}

} // namespace tessary::test
