#pragma once

#include "client/controller.h"
#include "client/serialline.h"
#include "commandresult.h"

#include <cstdint>
#include <functional>
#include <QByteArray>
#include <QFile>
#include <string>
#include <string_view>

namespace tessary::test {

class Instrument;

/// Counts the bytes that the relay has handed to the daemon's terminal since the object was made, by the log
/// of the line.
class RelayedBytes
{
public:
    explicit RelayedBytes(const QString& lineLog);

    std::uint64_t count();

private:
    QFile m_log;
    QByteArray m_rest; ///< a line of which only the beginning has been read
    std::uint64_t m_count = 0;
};

/// The controller's end of an instrument's line, for tests. Each write is a burst of its own, however busy
/// the machine is: it goes out when the daemon has read all that was written before, which is seen at the
/// daemon's own terminal. What was asked for is complete when a question behind it is answered. Throws
/// LineError when the daemon ends meanwhile, and when it keeps the line waiting for minutes.
class BurstLine : public client::SerialLine
{
public:
    /// How long a daemon that lives may keep the line waiting; only a test that fails waits so long.
    static constexpr client::Milliseconds patience{patienceMilliseconds};

    /// Borrows the instrument.
    explicit BurstLine(const Instrument& instrument);
    ~BurstLine() override;
    BurstLine(const BurstLine&) = delete;
    BurstLine& operator=(const BurstLine&) = delete;

    void write(std::string_view bytes, client::Milliseconds timeout = patience) override;

    /// True when the daemon has read all that was written. If that ended with a line feed, the burst has
    /// ended.
    bool isTaken();
    void waitUntilTaken();

    /// Waits until the daemon has carried out all that was written; returns what it has said and nobody has
    /// read yet. What was written without line feed gets one.
    std::string finish();

    /// Sends a burst and returns all that the daemon says to it (and to what was written before it).
    std::string ask(std::string_view burst);

private:
    void send(std::string_view bytes, client::Milliseconds timeout);
    void endBurst();
    bool daemonsTerminalIsEmpty() const;
    /// False when the daemon lives and has let the time pass.
    bool await(const std::function<bool()>& happened) const;

    const Instrument& m_instrument;
    RelayedBytes m_relayed;
    int m_daemonsEnd; ///< the daemon's terminal, open a second time
    std::uint64_t m_written = 0;
    bool m_burstIsOpen = false; ///< the last byte was no line feed
};

/// The waits of a controller that has a BurstLine.
inline constexpr client::Patience controllerPatience{
    BurstLine::patience, BurstLine::patience, BurstLine::patience};

} // namespace tessary::test
