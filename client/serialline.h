#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace tessary::client {

using Milliseconds = std::chrono::milliseconds;

/// The controller's end of the serial line: any tty or pty, set to raw, 115200 baud, 8 data bits, no parity,
/// one stop bit, no flow control. Used from one thread. Every operation throws LineError; after `HungUp` the
/// object is of no further use.
class SerialLine
{
public:
    /// Opens and sets up the port. Bytes that have already arrived are kept: the greeting may be among them.
    explicit SerialLine(std::string path);
    virtual ~SerialLine();
    SerialLine(SerialLine&& other) noexcept;
    SerialLine& operator=(SerialLine&& other) noexcept;
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;

    const std::string& path() const { return m_path; }

    /// Writes all bytes; waits for room in the driver's buffer, for `timeout` in all.
    virtual void write(std::string_view bytes, Milliseconds timeout = Milliseconds(10000));

    /// Whatever has arrived, waiting for the first byte at most `timeout`; empty when nothing came.
    std::string readSome(Milliseconds timeout);

    /// Up to and with the next '\n'. Bytes of an unfinished line stay readable when the time is over.
    std::string readLine(Milliseconds timeout);

    /// Exactly `count` bytes. Bytes of a short answer stay readable when the time is over.
    std::string readExactly(std::size_t count, Milliseconds timeout);

    /// Everything until the line has been silent for `quiet`; waits for the first byte at most `first`, and
    /// returns empty when none came. This is how an answer without terminator and without length ends.
    std::string readUntilSilence(Milliseconds first, Milliseconds quiet);

    /// Waits until the driver has sent what was written, as far as the driver can tell (a pseudo terminal can
    /// not).
    void drain();

    /// Takes the port for this process alone, among those that ask so (flock): two programs on one line would
    /// take each other's answers. Throws LineError CannotOpen when another one has it.
    void lock();

    /// Drops what has arrived and not been read; returns it.
    std::string discardInput();

    /// Waiting ends with LineError Stopped within a tenth of a second after `stop` has become true. It is
    /// called from the thread that waits; empty: nothing stops it.
    void stopWhen(std::function<bool()> stop) { m_stop = std::move(stop); }

    enum class Direction { To, From }; ///< the instrument
    using Tap = std::function<void(Direction, std::string_view bytes)>;
    /// Shows what goes over the line, as the driver took it or gave it. Called from the thread that uses the
    /// line; empty: nobody looks.
    void tap(Tap tap) { m_tap = std::move(tap); }

private:
    using Clock = std::chrono::steady_clock;

    void configure();
    void close() noexcept;
    /// Waits for `events` until `deadline`; false when the time is over.
    bool waitFor(short events, Clock::time_point deadline);
    /// Appends to the pending bytes what the driver has; false when nothing came before `deadline`.
    bool fill(Clock::time_point deadline);
    std::string takePending(std::size_t count);
    void throwIfStopped() const;
    [[noreturn]] void throwHungUp() const;
    [[noreturn]] void throwTimedOut(const std::string& expected, Milliseconds timeout) const;

    std::string m_path;
    int m_fd = -1;
    std::function<bool()> m_stop;
    Tap m_tap;
    std::string m_pending; ///< received, not yet handed out
};

} // namespace tessary::client
