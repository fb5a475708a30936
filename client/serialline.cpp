#include "client/serialline.h"

#include "client/lineerror.h"
#include "client/lockholder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace tessary::client {

namespace {

std::string systemText(int error)
{
    return std::strerror(error);
}

std::string openRemedy(int error)
{
    switch (error) {
    case ENOENT:
    case ENXIO:
    case ENODEV:
        return "plug in the serial adapter, or start the virtual instrument (bench/instrument run) and use "
               "its controller port";
    case EACCES:
    case EPERM:
        return "run as root, or join the group that owns the port (often dialout)";
    case EBUSY:
        return "end the other program that uses the port";
    default:
        return "check the path of the port";
    }
}

} // namespace

SerialLine::SerialLine(std::string path)
    : m_path(std::move(path))
{
    m_fd = ::open(m_path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (m_fd < 0) {
        const int error = errno;
        throw LineError(LineError::Kind::CannotOpen,
            "cannot open port " + m_path + ": " + systemText(error) + "; " + openRemedy(error));
    }
    try {
        configure();
    } catch (...) {
        close();
        throw;
    }
}

SerialLine::~SerialLine()
{
    close();
}

SerialLine::SerialLine(SerialLine&& other) noexcept
    : m_path(std::move(other.m_path))
    , m_fd(std::exchange(other.m_fd, -1))
    , m_stop(std::move(other.m_stop))
    , m_tap(std::move(other.m_tap))
    , m_pending(std::move(other.m_pending))
{
}

SerialLine& SerialLine::operator=(SerialLine&& other) noexcept
{
    if (this != &other) {
        close();
        m_path = std::move(other.m_path);
        m_fd = std::exchange(other.m_fd, -1);
        m_stop = std::move(other.m_stop);
        m_tap = std::move(other.m_tap);
        m_pending = std::move(other.m_pending);
    }
    return *this;
}

void SerialLine::configure()
{
    termios settings{};
    if (::tcgetattr(m_fd, &settings) != 0)
        throw LineError(LineError::Kind::NotATerminal,
            m_path
                + " is not a serial port or terminal; give a tty such as /dev/ttyUSB0 or the virtual "
                  "instrument's controller port");
    ::cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS);
    settings.c_iflag |= IGNBRK | IGNPAR;
    ::cfsetispeed(&settings, B115200);
    ::cfsetospeed(&settings, B115200);
    if (::tcsetattr(m_fd, TCSANOW, &settings) != 0)
        throw LineError(LineError::Kind::Failed,
            "cannot set port " + m_path + " to 115200 baud: " + systemText(errno)
                + "; use a port that supports this speed");
}

void SerialLine::close() noexcept
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

bool SerialLine::waitFor(short events, Clock::time_point deadline)
{
    constexpr Milliseconds longestStep{100}; // between two looks whether to go on
    for (;;) {
        throwIfStopped();
        const auto left = std::max(std::chrono::ceil<Milliseconds>(deadline - Clock::now()), Milliseconds(0));
        const auto step = m_stop ? std::min(left, longestStep) : left;
        pollfd entry{m_fd, events, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(step.count()));
        if ((ready < 0 && errno == EINTR) || (ready == 0 && step < left))
            continue;
        if (ready < 0)
            throw LineError(
                LineError::Kind::Failed, "waiting on port " + m_path + " failed: " + systemText(errno));
        if (ready == 0)
            return false;
        if ((entry.revents & events) != 0)
            return true;
        throwHungUp();
    }
}

void SerialLine::write(std::string_view bytes, Milliseconds timeout)
{
    const auto deadline = Clock::now() + timeout;
    while (!bytes.empty()) {
        if (!waitFor(POLLOUT, deadline))
            throwTimedOut("room for " + std::to_string(bytes.size()) + " more bytes to send", timeout);
        const ssize_t written = ::write(m_fd, bytes.data(), bytes.size());
        if (written > 0) {
            const auto taken = static_cast<std::size_t>(written);
            if (m_tap)
                m_tap(Direction::To, bytes.substr(0, taken));
            bytes.remove_prefix(taken);
        } else if (errno == EIO || errno == ENXIO || errno == ENODEV)
            throwHungUp();
        else if (errno != EAGAIN && errno != EINTR)
            throw LineError(
                LineError::Kind::Failed, "writing to port " + m_path + " failed: " + systemText(errno));
    }
}

bool SerialLine::fill(Clock::time_point deadline)
{
    std::array<char, 4096> chunk{};
    while (waitFor(POLLIN, deadline)) {
        const ssize_t count = ::read(m_fd, chunk.data(), chunk.size());
        if (count > 0) {
            const std::string_view came(chunk.data(), static_cast<std::size_t>(count));
            if (m_tap)
                m_tap(Direction::From, came);
            m_pending.append(came);
            return true;
        }
        if (count == 0 || errno == EIO || errno == ENXIO || errno == ENODEV)
            throwHungUp();
        if (errno != EAGAIN && errno != EINTR)
            throw LineError(
                LineError::Kind::Failed, "reading from port " + m_path + " failed: " + systemText(errno));
    }
    return false;
}

std::string SerialLine::takePending(std::size_t count)
{
    std::string taken = m_pending.substr(0, count);
    m_pending.erase(0, count);
    return taken;
}

std::string SerialLine::readSome(Milliseconds timeout)
{
    if (m_pending.empty())
        fill(Clock::now() + timeout);
    return takePending(m_pending.size());
}

std::string SerialLine::readLine(Milliseconds timeout)
{
    const auto deadline = Clock::now() + timeout;
    std::size_t end = m_pending.find('\n');
    while (end == std::string::npos) {
        if (!fill(deadline))
            throwTimedOut("a line", timeout);
        end = m_pending.find('\n');
    }
    return takePending(end + 1);
}

std::string SerialLine::readExactly(std::size_t count, Milliseconds timeout)
{
    const auto deadline = Clock::now() + timeout;
    while (m_pending.size() < count) {
        if (!fill(deadline))
            throwTimedOut(std::to_string(count) + " bytes", timeout);
    }
    return takePending(count);
}

std::string SerialLine::readUntilSilence(Milliseconds first, Milliseconds quiet)
{
    if (m_pending.empty() && !fill(Clock::now() + first))
        return {};
    while (fill(Clock::now() + quiet)) { }
    return takePending(m_pending.size());
}

void SerialLine::drain()
{
    while (::tcdrain(m_fd) != 0) {
        if (errno == EIO || errno == ENXIO || errno == ENODEV)
            throwHungUp();
        if (errno != EINTR)
            throw LineError(
                LineError::Kind::Failed, "sending on port " + m_path + " failed: " + systemText(errno));
    }
}

void SerialLine::lock()
{
    if (::flock(m_fd, LOCK_EX | LOCK_NB) == 0)
        return;
    const std::string holder = lockHolder(m_fd);
    throw LineError(LineError::Kind::CannotOpen,
        "port " + m_path + " is in use by another program" + (holder.empty() ? "" : " (" + holder + ")")
            + "; " + openRemedy(EBUSY));
}

std::string SerialLine::discardInput()
{
    while (fill(Clock::now())) { }
    return takePending(m_pending.size());
}

void SerialLine::throwIfStopped() const
{
    if (m_stop && m_stop())
        throw LineError(LineError::Kind::Stopped,
            "waiting on port " + m_path + " was ended; the instrument may still be busy with the command");
}

void SerialLine::throwHungUp() const
{
    throw LineError(LineError::Kind::HungUp,
        "port " + m_path
            + " hung up: its other end is gone; plug the adapter in again or restart the virtual instrument");
}

void SerialLine::throwTimedOut(const std::string& expected, Milliseconds timeout) const
{
    throw LineError(LineError::Kind::TimedOut,
        "no answer on port " + m_path + ": waited " + std::to_string(timeout.count()) + " ms for " + expected
            + ", got " + std::to_string(m_pending.size())
            + " bytes; check that the instrument is on and has sent its greeting, or raise the time-out");
}

} // namespace tessary::client
