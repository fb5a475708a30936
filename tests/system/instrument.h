#pragma once

#include "commandresult.h"
#include "records.h"

#include <functional>
#include <memory>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <vector>

namespace tessary::test {

/// What the kernel says of the running daemon.
struct DaemonResources
{
    int descriptors = 0; ///< open files, sockets and pipes
    int threads = 0;
    long residentKiB = 0;
    double processorSeconds = 0; ///< used since its start
};

/// A stream on its way to the instrument; stops when the object ends.
class RunningStream
{
public:
    explicit RunningStream(std::unique_ptr<GuardedProcess> process);

    /// Waits until everything has been sent (of a stream that is not repeated without end).
    bool waitUntilSent();
    /// Ends one that has no end of its own, and waits until it has printed its count.
    bool stop();
    /// What the sender has printed, its count in the end.
    QByteArray output();
    QByteArray errors();

private:
    std::unique_ptr<GuardedProcess> m_process;
};

/// A virtual instrument of the test's own, with a run directory of its own. It is stopped when the object
/// ends, and when the test program ends in any other way. Throws std::runtime_error, with the instrument's
/// own words, when something can not be done.
class Instrument
{
public:
    /// Starts it and waits until it is ready. With `startDaemon` false the daemon waits for daemon("start"),
    /// so that a test can prepare the instrument's files before.
    explicit Instrument(bool startDaemon = true);
    /// With its hardware (FPGA, bitstream file, DAB receiver program), daemon not started; options as those
    /// of bench/hardware.
    explicit Instrument(const QStringList& hardwareOptions);
    ~Instrument();
    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;

    QString path(const QString& file) const { return m_folder.path() + "/" + file; }
    /// A file of the folder that the instrument shows as /run/bench.
    QString sharedFile(const QString& file) const { return path("io/" + file); }

    /// Pictures that the display has got since the player was started, 0 before the first.
    int framesShown() const;

    /// The daemon's end of the serial line as a path on the host.
    QString daemonsTerminal() const;

    /// Runs a program inside the instrument.
    CommandResult exec(const QStringList& command) const;
    /// Runs one shell line inside the instrument; throws when it fails.
    QByteArray shell(const QString& line) const;

    /// Sends a stream from the far end of eth0 with these arguments of the sender program.
    RunningStream send(const QStringList& senderArguments) const;
    /// The address that eth0 has got, waiting for it.
    QString ethernetAddress() const;
    /// Takes the far end of eth0 up or down.
    void setLink(bool up) const;
    /// Lets a program fail, stall or speak when the daemon runs it next: arguments of "bench/instrument
    /// behave".
    void misbehave(const QStringList& arguments) const;

    /// "start", "stop", "kill", "restart".
    void daemon(const QString& action) const;
    /// PID on the host, or 0 when it does not run.
    qint64 daemonPid() const;
    DaemonResources daemonResources() const;
    /// Waits until none of its threads has had anything to do for a moment: all that it has been given is
    /// where it belongs.
    bool waitUntilDaemonRests() const;
    QByteArray daemonLog() const;

    std::vector<RecordedCommand> commands() const { return readCommands(path("commands.log")); }
    std::vector<LineEntry> lineLog() const { return readLineLog(path("line.log")); }

    /// The daemon is built with ThreadSanitizer or AddressSanitizer, or runs under an emulator
    /// (TESSARY_SYSTEM_EMULATOR): everything takes several times as long.
    static bool daemonIsSlow();

private:
    CommandResult control(const QStringList& arguments) const;
    void start(const QString& program, const QStringList& arguments);
    QStringList runArguments(bool startDaemon) const;
    void waitUntilReady();

    QTemporaryDir m_folder;
    std::unique_ptr<GuardedProcess> m_runner;
};

/// A whole file; empty when it can not be read.
QByteArray contentOf(const QString& path);

/// Asks every 20 ms until `condition` holds or the time is over; tells whether it holds.
bool waitUntil(const std::function<bool()>& condition, int milliseconds = patienceMilliseconds);

/// Path of a stream made for the demo and the tests (demo.ts and others).
QString madeStream(const QString& name);

} // namespace tessary::test
