// SerialPort without a device. These definitions take the place of the daemon's own.
#include "support/fakeline.h"

#include "link/serialport.h"
#include "support/input.h"
#include "tests/unit/support/virtualtime.h"

#include <algorithm>
#include <QElapsedTimer>

namespace {

constexpr std::int64_t silenceUs = 300000; // passes with each look at a line that is silent

struct Line
{
    std::vector<std::uint8_t> bytes;
    std::size_t next = 0;
    std::size_t pause = 0; ///< position of the next pause
    fakeline::Pauses pauses = fakeline::Pauses::None;
    std::string written;

    void findPause()
    {
        pause = bytes.size();
        if (pauses == fakeline::Pauses::None)
            return;
        const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(next);
        const auto lineFeed = std::find(from, bytes.end(), '\n');
        if (lineFeed != bytes.end())
            pause = static_cast<std::size_t>(lineFeed - bytes.begin()) + 1;
    }

    /// Bytes before the next pause; a pause is noticed once and then over.
    std::size_t pending()
    {
        const std::size_t count = pause - next;
        if (count == 0) {
            virtualtime::advance(silenceUs);
            findPause();
        }
        return count;
    }
};

Line line;

} // namespace

namespace fakeline {

void load(std::vector<std::uint8_t> received, Pauses pauses)
{
    line = Line();
    line.bytes = std::move(received);
    line.pauses = pauses;
    line.findPause();
}

std::size_t left()
{
    return line.bytes.size() - line.next;
}

const std::string& written()
{
    return line.written;
}

} // namespace fakeline

SerialPort::SerialPort()
    : m_fd(-1)
{
}

SerialPort::~SerialPort() = default;

int SerialPort::SerialPortConnect()
{
    m_fd = 0;
    return m_fd;
}

void SerialPort::SerialPortDisconnect()
{
    m_fd = -1;
}

int SerialPort::SerialPortWrite(const char* buffer, int length)
{
    FUZZ_REQUIRE(length >= 0);
    line.written.append(buffer, static_cast<std::size_t>(length)); // reads all of it, as the device would
    return length;
}

int SerialPort::IsInputBytesPending()
{
    return static_cast<int>(line.pending());
}

int SerialPort::SerialPortRead(char* buffer, int length)
{
    FUZZ_REQUIRE(length >= 0);
    const std::size_t count = std::min(line.pending(), static_cast<std::size_t>(length));
    std::copy_n(line.bytes.begin() + static_cast<std::ptrdiff_t>(line.next), count, buffer);
    line.next += count;
    return static_cast<int>(count);
}

void SerialPort::DrainOutput() { }

/// Milliseconds on the stopwatch of a burst: its time is up where the line pauses.
qint64 wrappedElapsed(const QElapsedTimer* timer) __asm__("__wrap__ZNK13QElapsedTimer7elapsedEv");
qint64 wrappedElapsed(const QElapsedTimer*)
{
    return line.next == line.pause ? 100 : 0;
}
