#pragma once

#include <cstdint>
#include <QObject>
#include <QTimer>

class socketcom;

/// Prepares the hardware and services once, in its constructor, and then polls: each shot of the timer
/// collects a burst from the controller, dispatches its commands and watches the Ethernet link. Everything
/// runs on the main thread; a handler that blocks holds up all polling.
class Worker : public QObject
{
    Q_OBJECT
public:
    /// Carries out the start-up steps in their fixed order. No step is skipped because an earlier one failed,
    /// except the PCIe rescan, which needs a configured FPGA.
    Worker();
    /// Does not delete the DAB link: it ends with the process.
    ~Worker() override;

    /// Hands display and sound to the DAB receiver program. Blocks for 3.2 s and 0.5 s per connection
    /// attempt, 80 at most.
    void startDAB();
    /// Takes display and sound back. Blocks about 4 s.
    void stopDAB();
    /// Sends the 117 bytes at `block` to the DAB receiver and its 117-byte answer to the controller. Waits
    /// without limit.
    void forwardDAB(const char* block);

    bool dabStarted() const { return m_dabStarted; }

public Q_SLOTS:
    /// One poll cycle; restarts the timer as its last action on every path.
    void doWork();

private:
    QTimer m_timer;
    /// Owned in DAB mode; after a failed start the last link that failed, which stays as it is; else null.
    socketcom* m_pSocket;
    bool m_dabStarted;
    char m_dabPrefix[3]; ///< never read: part of the record all the same
    std::uint16_t m_dabPrefixLength; ///< never read: part of the record all the same
};

/// Stops and discards the current stream source, if there is one.
void gstStop();

/// Bytes in the command burst of the current cycle.
extern std::int32_t ReceivedBytes;
/// Ethernet link state seen by the previous cycle, 0 or 1.
extern std::uint8_t EthernetConnected;
