#include "instrument.h"

#include "daemonlog.h"

#include <algorithm>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <stdexcept>
#include <unistd.h>

namespace tessary::test {

namespace {

constexpr int startMilliseconds =
    600000; // the first start on a machine downloads and installs packages for the instrument
constexpr int stopMilliseconds = patienceMilliseconds;

const QString instrumentProgram = QStringLiteral(TESSARY_SOURCE_DIR "/bench/instrument");
const QString hardwareProgram = QStringLiteral(TESSARY_SOURCE_DIR "/bench/hardware");
const QString buildFolder = QStringLiteral(TESSARY_BUILD_DIR);

[[noreturn]] void fail(const QString& what, const QByteArray& words)
{
    throw std::runtime_error((what + ": " + QString::fromUtf8(words).trimmed()).toStdString());
}

QString daemonUnderTest()
{
    return qEnvironmentVariable("TESSARY_SYSTEM_DAEMON", buildFolder + "/src/tessary");
}

/// What runs a daemon that is built for another architecture; empty when this machine's processor does.
QString emulator()
{
    return qEnvironmentVariable("TESSARY_SYSTEM_EMULATOR");
}

/// True when each thread of a process sleeps; `tasks` is the process's folder of them.
bool allAsleep(const QString& tasks)
{
    const QStringList threads = QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::all_of(threads.begin(), threads.end(), [&](const QString& thread) {
        const QByteArray stat = contentOf(tasks + "/" + thread + "/stat");
        return stat.isEmpty()
            || stat.mid(stat.lastIndexOf(')') + 2, 1) == "S"; // proc(5); empty when it has ended
    });
}

bool daemonHas(const char* symbol)
{
    return contentOf(daemonUnderTest()).contains(symbol);
}

} // namespace

RunningStream::RunningStream(std::unique_ptr<GuardedProcess> process)
    : m_process(std::move(process))
{
}

bool RunningStream::waitUntilSent()
{
    return m_process->waitForFinished(patienceMilliseconds) && m_process->exitCode() == 0;
}

bool RunningStream::stop()
{
    m_process->terminate();
    return waitUntilSent();
}

QByteArray RunningStream::output()
{
    return m_process->readAllStandardOutput();
}

QByteArray RunningStream::errors()
{
    return m_process->readAllStandardError();
}

Instrument::Instrument(bool startDaemon)
    : m_folder("/run/tessary-test-XXXXXX")
    , m_runner(std::make_unique<GuardedProcess>())
{
    start(instrumentProgram, QStringList("run") + runArguments(startDaemon));
}

Instrument::Instrument(const QStringList& hardwareOptions)
    : m_folder("/run/tessary-test-XXXXXX")
    , m_runner(std::make_unique<GuardedProcess>())
{
    start(hardwareProgram, runArguments(false) + hardwareOptions);
}

void Instrument::start(const QString& program, const QStringList& arguments)
{
    if (!m_folder.isValid())
        fail("no run directory", m_folder.errorString().toUtf8());
    m_runner->setProcessChannelMode(QProcess::MergedChannels);
    m_runner->setStandardOutputFile(path("runner.log"));
    m_runner->start(program, arguments);
    waitUntilReady();
}

Instrument::~Instrument()
{
    m_runner->endGracefully(stopMilliseconds);
}

QStringList Instrument::runArguments(bool startDaemon) const
{
    QDir(m_folder.path()).mkpath("io"); // files for the daemon's sanitizer go there
    QStringList arguments{
        "--run-dir", m_folder.path(), "--build", buildFolder, "--daemon", daemonUnderTest()};
    if (!startDaemon)
        arguments << "--no-daemon";
    if (!emulator().isEmpty()) { // the platform elements are those of the daemon's build
        arguments << "--emulator" << emulator() << "--elements"
                  << QFileInfo(daemonUnderTest()).dir().filePath("../bench/elements");
    }
    const QString suppressions = QStringLiteral(TESSARY_SOURCE_DIR "/tests/sanitizers/");
    const auto pass = [&](const char* variable, const QString& standard, const QString& forLibraries = {}) {
        const QString options = daemonSanitizerOptions(variable, standard, forLibraries, sharedFile(""));
        arguments << "--daemon-env" << QString::fromLatin1(variable) + "=" + options;
    };
    if (daemonHas("__asan_init")) {
        pass("ASAN_OPTIONS", "detect_stack_use_after_return=1:strict_string_checks=1",
            suppressions + "asan.supp");
        pass("UBSAN_OPTIONS", "print_stacktrace=1:halt_on_error=1");
        pass("LSAN_OPTIONS", "suppressions=" + suppressions + "lsan.supp:print_suppressions=0");
    }
    if (daemonHas("__tsan_init")) {
        pass("TSAN_OPTIONS", "ignore_noninstrumented_modules=1"); // our code is checked in full
        arguments << "--setarch";
    }
    return arguments;
}

bool Instrument::daemonIsSlow()
{
    static const bool slow = !emulator().isEmpty() || daemonHas("__asan_init") || daemonHas("__tsan_init");
    return slow;
}

void Instrument::waitUntilReady()
{
    const auto isReady = [this] { return contentOf(path("runner.log")).endsWith("ready\n"); };
    const auto hasEnded = [this] {
        m_runner->waitForFinished(0);
        return m_runner->state() == QProcess::NotRunning;
    };
    waitUntil([&] { return isReady() || hasEnded(); }, startMilliseconds);
    if (!isReady())
        fail("the virtual instrument did not start", contentOf(path("runner.log")));
}

int Instrument::framesShown() const
{
    return QJsonDocument::fromJson(contentOf(sharedFile("display.json"))).object()["frames"].toInt();
}

QString Instrument::daemonsTerminal() const
{
    const QJsonObject state = QJsonDocument::fromJson(contentOf(path("state.json"))).object();
    return "/proc/" + QString::number(state["init"].toInt()) + "/root/dev/ttymxc1";
}

CommandResult Instrument::exec(const QStringList& command) const
{
    return runCommand(instrumentProgram, QStringList{"exec", "--run-dir", m_folder.path()} + command);
}

QByteArray Instrument::shell(const QString& line) const
{
    const CommandResult result =
        exec({"dash", "-c", line}); // dash, so that the command log's sh does not note it
    if (!result.ok())
        fail(line, result.errors);
    return result.output;
}

RunningStream Instrument::send(const QStringList& senderArguments) const
{
    auto process = std::make_unique<GuardedProcess>();
    const QString sender = buildFolder + "/bench/sender/tessary-send";
    // The leak checker wants to look at the sender's threads in /proc, which shows other PIDs than its
    // namespace has.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":detect_leaks=0");
    process->setProcessEnvironment(environment);
    process->start(instrumentProgram,
        QStringList{"exec", "--run-dir", m_folder.path(), "--sender", sender} + senderArguments);
    if (!process->waitForStarted())
        fail("the stream sender did not start", process->errorString().toUtf8());
    return RunningStream(std::move(process));
}

QString Instrument::ethernetAddress() const
{
    QString address;
    const auto known = [&] {
        const QByteArray words = shell("ip -4 -o address show dev eth0");
        const int begin = words.indexOf("inet ");
        const int end = words.indexOf('/', begin);
        if (begin >= 0 && end > begin)
            address = QString::fromLatin1(words.mid(begin + 5, end - begin - 5));
        return !address.isEmpty();
    };
    if (!waitUntil(known))
        fail("eth0 has no address", contentOf(path("services.log")).right(2000));
    return address;
}

CommandResult Instrument::control(const QStringList& arguments) const
{
    return runCommand(instrumentProgram, arguments + QStringList{"--run-dir", m_folder.path()});
}

void Instrument::setLink(bool up) const
{
    const CommandResult result = control({"link", up ? "up" : "down"});
    if (!result.ok())
        fail("the link could not be changed", result.errors);
}

void Instrument::misbehave(const QStringList& arguments) const
{
    const CommandResult result = control(QStringList{"behave"} + arguments);
    if (!result.ok())
        fail("behave " + arguments.join(' '), result.errors);
}

void Instrument::daemon(const QString& action) const
{
    const CommandResult result = control({"daemon", action});
    if (!result.ok())
        fail("daemon " + action, result.errors);
}

qint64 Instrument::daemonPid() const
{
    const CommandResult result = control({"daemon", "pid"});
    return result.ok() ? result.output.trimmed().split(' ').value(0).toLongLong() : 0;
}

DaemonResources Instrument::daemonResources() const
{
    const QString process = "/proc/" + QString::number(daemonPid());
    DaemonResources resources;
    resources.descriptors =
        QDir(process + "/fd").entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
    for (const QByteArray& line : contentOf(process + "/status").split('\n')) {
        const QByteArray value = line.mid(line.indexOf(':') + 1).trimmed().split(' ').value(0);
        if (line.startsWith("Threads:"))
            resources.threads = value.toInt();
        if (line.startsWith("VmRSS:"))
            resources.residentKiB = value.toLong();
    }
    const QByteArray stat = contentOf(process + "/stat"); // proc(5): utime and stime are the fields 14 and 15
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    const double ticks = fields.value(14 - 3).toDouble() + fields.value(15 - 3).toDouble();
    resources.processorSeconds = ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
    return resources;
}

bool Instrument::waitUntilDaemonRests() const
{
    constexpr int enough = 10; // looks in a row: work is handed from thread to thread between two of them
    const QString tasks = "/proc/" + QString::number(daemonPid()) + "/task";
    int looks = 0;
    return waitUntil([&] {
        looks = allAsleep(tasks) ? looks + 1 : 0;
        return looks == enough;
    });
}

QByteArray Instrument::daemonLog() const
{
    return contentOf(path("daemon.log"));
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool waitUntil(const std::function<bool()>& condition, int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > milliseconds)
            return condition();
        QThread::msleep(20);
    }
    return true;
}

QString madeStream(const QString& name)
{
    return qEnvironmentVariable("TESSARY_STREAMS", QStringLiteral(TESSARY_STREAMS)) + "/" + name;
}

} // namespace tessary::test
