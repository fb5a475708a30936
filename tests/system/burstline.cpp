#include "burstline.h"

#include "client/endmark.h"
#include "client/lineerror.h"
#include "instrument.h"

#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace tessary::test {

using client::LineError;
using client::Milliseconds;
using std::chrono::steady_clock;

RelayedBytes::RelayedBytes(const QString& lineLog)
    : m_log(lineLog)
{
    if (!m_log.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || !m_log.seek(m_log.size()))
        throw std::runtime_error("can not read " + lineLog.toStdString());
}

std::uint64_t RelayedBytes::count()
{
    QList<QByteArray> lines = (m_rest + m_log.readAll()).split('\n');
    m_rest = lines.takeLast();
    for (const QByteArray& line : lines) {
        const LineEntry entry = readLineEntry(line);
        if (!entry.fromDaemon)
            m_count += static_cast<std::uint64_t>(entry.bytes.size());
    }
    return m_count;
}

BurstLine::BurstLine(const Instrument& instrument)
    : SerialLine(instrument.path("controller").toStdString())
    , m_instrument(instrument)
    , m_relayed(instrument.path("line.log"))
    , m_daemonsEnd(::open(
          instrument.daemonsTerminal().toUtf8().constData(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    if (m_daemonsEnd < 0)
        throw std::runtime_error("can not open " + instrument.daemonsTerminal().toStdString());
}

BurstLine::~BurstLine()
{
    ::close(m_daemonsEnd);
}

void BurstLine::write(std::string_view bytes, Milliseconds timeout)
{
    waitUntilTaken();
    send(bytes, timeout);
}

void BurstLine::send(std::string_view bytes, Milliseconds timeout)
{
    SerialLine::write(bytes, timeout);
    m_written += bytes.size();
    if (!bytes.empty())
        m_burstIsOpen = bytes.back() != '\n';
}

/// The count waits for a read that is under way; the look makes the kernel hand over what is still on its way
/// inside the terminal, which it otherwise does in its own time.
bool BurstLine::daemonsTerminalIsEmpty() const
{
    int unread = 0;
    pollfd look{m_daemonsEnd, POLLIN, 0};
    return ::ioctl(m_daemonsEnd, FIONREAD, &unread) == 0 && unread == 0 && ::poll(&look, 1, 0) == 0;
}

bool BurstLine::isTaken()
{
    if (m_relayed.count() < m_written)
        return false;
    // Twice: the rest of more than the terminal holds comes when the daemon has made room for it.
    for (int look = 0; look < 2; ++look) {
        if (!daemonsTerminalIsEmpty())
            return false;
    }
    return true;
}

void BurstLine::waitUntilTaken()
{
    const auto happened = [this] {
        const bool taken = isTaken();
        if (!taken)
            std::this_thread::sleep_for(Milliseconds(1));
        return taken;
    };
    if (!await(happened))
        throw LineError(LineError::Kind::TimedOut, "the daemon does not read what is sent");
}

bool BurstLine::await(const std::function<bool()>& happened) const
{
    constexpr Milliseconds period{5000};
    const auto deadline = steady_clock::now() + patience;
    auto nextLook = steady_clock::now() + period;
    while (!happened()) {
        if (steady_clock::now() < nextLook)
            continue;
        if (m_instrument.daemonPid() == 0)
            throw LineError(LineError::Kind::Failed, "the daemon has ended");
        if (steady_clock::now() > deadline)
            return false;
        nextLook = steady_clock::now() + period;
    }
    return true;
}

/// A line feed ends a burst that the daemon still collects; one that has had its time is none the worse.
void BurstLine::endBurst()
{
    if (m_burstIsOpen)
        send("\n", patience);
}

std::string BurstLine::finish()
{
    endBurst();
    const client::EndMark mark = client::EndMark::next();
    write(" " + mark.question()); // the blank is the command that it stands behind
    const std::string answer = mark.answer();
    std::string received;
    const auto answered = [&] {
        received += readSome(Milliseconds(500));
        return received.size() >= answer.size()
            && received.compare(received.size() - answer.size(), answer.size(), answer) == 0;
    };
    if (!await(answered))
        throw LineError(
            LineError::Kind::TimedOut, "the daemon does not answer; it said \"" + received + "\"");
    received.resize(received.size() - answer.size());
    return received;
}

std::string BurstLine::ask(std::string_view burst)
{
    endBurst();
    write(burst);
    return finish();
}

} // namespace tessary::test
