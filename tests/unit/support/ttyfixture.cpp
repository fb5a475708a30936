#include "support/ttyfixture.h"

#include "link/serialport.h"
#include "support/privatemachine.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <mutex>
#include <poll.h>
#include <QString>
#include <termios.h>
#include <unistd.h>

namespace {

std::mutex logMutex;
std::condition_variable logGrew;
std::vector<std::string> logLines;
QtMessageHandler earlierHandler = nullptr;

bool beginsWith(const std::string& line, const std::string& beginning)
{
    return line.rfind(beginning, 0) == 0;
}

void collect(QtMsgType, const QMessageLogContext&, const QString& text)
{
    const std::lock_guard<std::mutex> lock(logMutex);
    logLines.push_back(text.toStdString());
    logGrew.notify_all();
}

} // namespace

LogCapture::LogCapture()
{
    forget();
    earlierHandler = qInstallMessageHandler(collect);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(earlierHandler);
}

std::vector<std::string> LogCapture::lines() const
{
    const std::lock_guard<std::mutex> lock(logMutex);
    std::vector<std::string> ours;
    std::copy_if(logLines.begin(), logLines.end(), std::back_inserter(ours),
        [](const std::string& line) { return !beginsWith(line, "GStreamer, "); });
    return ours;
}

bool LogCapture::contains(const std::string& line) const
{
    const std::lock_guard<std::mutex> lock(logMutex);
    return std::find(logLines.begin(), logLines.end(), line) != logLines.end();
}

bool LogCapture::waitFor(const std::string& beginning) const
{
    std::unique_lock<std::mutex> lock(logMutex);
    return logGrew.wait_for(lock, std::chrono::milliseconds(patienceMs), [&beginning] {
        return std::any_of(logLines.begin(), logLines.end(),
            [&beginning](const std::string& line) { return beginsWith(line, beginning); });
    });
}

void LogCapture::forget()
{
    const std::lock_guard<std::mutex> lock(logMutex);
    logLines.clear();
}

PseudoLine::PseudoLine(const std::string& device)
    : m_device(device)
{
    m_master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (m_master == -1 || grantpt(m_master) != 0 || unlockpt(m_master) != 0)
        return;
    termios raw{};
    tcgetattr(m_master, &raw);
    cfmakeraw(&raw);
    tcsetattr(m_master, TCSANOW, &raw);
    m_slave = open(ptsname(m_master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    unlink(m_device.c_str());
    [[maybe_unused]] const int linked = symlink(ptsname(m_master), m_device.c_str());
}

PseudoLine::~PseudoLine()
{
    unlink(m_device.c_str());
    for (const int fd : {m_slave, m_master}) {
        if (fd != -1)
            close(fd);
    }
}

void PseudoLine::write(const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(m_master, bytes.data() + done, bytes.size() - done);
        if (n <= 0)
            return;
        done += static_cast<std::size_t>(n);
    }
    // To look makes the kernel hand over what is on its way, which it otherwise does in its own time.
    pollfd look{m_slave, POLLIN, 0};
    poll(&look, 1, 0);
}

std::string PseudoLine::readUntilQuiet(int quietMs)
{
    std::string bytes;
    char buffer[4096];
    pollfd waiting{m_master, POLLIN, 0};
    while (poll(&waiting, 1, quietMs) > 0) {
        const ssize_t n = ::read(m_master, buffer, sizeof buffer);
        if (n <= 0)
            break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    return bytes;
}

std::string PseudoLine::read(std::size_t count, int timeoutMs)
{
    std::string bytes;
    char buffer[4096];
    pollfd waiting{m_master, POLLIN, 0};
    while (bytes.size() < count && poll(&waiting, 1, timeoutMs) > 0) {
        const ssize_t n = ::read(m_master, buffer, std::min(sizeof buffer, count - bytes.size()));
        if (n <= 0)
            break;
        bytes.append(buffer, static_cast<std::size_t>(n));
    }
    return bytes;
}

void ControllerLine::SetUp()
{
    const std::string reason = privatemachine::enter();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    m_controller = new PseudoLine("/dev/ttymxc1");
    m_console = new PseudoLine("/dev/ttymxc0");
    ASSERT_GE(uart.SerialPortConnect(), 0);
}

void ControllerLine::TearDown()
{
    if (!m_controller)
        return;
    uart.SerialPortDisconnect();
    delete m_controller;
    delete m_console;
}
