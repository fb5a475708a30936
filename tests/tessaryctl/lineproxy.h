#pragma once

#include "../client/ptypair.h"
#include "client/serialline.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

namespace tessary::test {

/// A cable between the tool and the instrument's controller port that can be slow, lose and damage bytes, and
/// be pulled out. The tool opens path().
class LineProxy
{
public:
    struct Faults
    {
        std::size_t bytesPerSecond = 0; ///< each way; 0 is as fast as it goes
        std::int64_t dropFrom = -1; ///< position in what goes to the daemon ...
        std::int64_t dropCount = 0; ///< ... from which so many bytes vanish
        std::string swallowed; ///< a command that never arrives
        std::int64_t damageAt = -1; ///< position of one byte that arrives inverted
        std::int64_t pullAfterCommand = -1; ///< pulled out when so many bytes have gone to the daemon
        std::int64_t pullAfterAnswer = -1; ///< pulled out when so many bytes have come from it
    };

    LineProxy(const std::string& controllerPort, Faults faults);
    ~LineProxy();
    LineProxy(const LineProxy&) = delete;
    LineProxy& operator=(const LineProxy&) = delete;

    std::string path() const { return m_pty.path(); }
    bool pulled() const { return m_pulled; }
    std::int64_t toDaemon() const { return m_toDaemon; }

private:
    void run();
    /// One step; false when the cable is out.
    bool carry();
    bool carryToDaemon();
    bool carryFromDaemon();
    void swallow();
    std::string withFaults(const std::string& bytes);

    Faults m_faults;
    PtyPair m_pty;
    client::SerialLine m_instrument;
    std::string m_waiting; ///< for the daemon
    std::chrono::steady_clock::time_point m_lastTick = std::chrono::steady_clock::now();
    std::atomic<std::int64_t> m_toDaemon{0};
    std::int64_t m_fromDaemon = 0;
    std::atomic<bool> m_pulled{false};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace tessary::test
