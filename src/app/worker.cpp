#include "app/worker.h"

#include "app/commandtable.h"
#include "app/startup.h"
#include "link/serialport.h"
#include "system/network.h"
#include "system/system_config.h"

#include <exception>
#include <QElapsedTimer>
#include <QtDebug>
#include <unistd.h>

namespace {

constexpr int pollIntervalMs = 5;
constexpr int burstSize = 640;
constexpr int burstTimeMs = 99;

/// Room for one burst. The bytes behind it stay zero: they end the last text, and rows that reach for fixed
/// offsets behind a word (the DAB block is the longest) stay inside.
struct CommandBuffer
{
    char bytes[burstSize + dabBlockSize + 1] = {};
};

/// Collects until a read ends with a line feed or the time is up. False when nothing came.
bool collectBurst(CommandBuffer& buffer)
{
    ReceivedBytes = 0;
    QElapsedTimer stopwatch;
    stopwatch.start();
    for (;;) {
        ReceivedBytes += uart.SerialPortRead(buffer.bytes + ReceivedBytes, burstSize - ReceivedBytes);
        // A failed read counts as it stands, but never moves the position below the buffer.
        if (ReceivedBytes < 0)
            ReceivedBytes = 0;
        if (stopwatch.elapsed() > burstTimeMs)
            return ReceivedBytes >= 1;
        if (ReceivedBytes >= 1 && buffer.bytes[ReceivedBytes - 1] == '\n')
            return true;
    }
}

/// The one place where a handler is called: what it throws ends in one log line and silence on the link.
void dispatch(Worker& worker, char* text)
{
    const CommandRow* row = findCommand(text, worker);
    if (!row)
        return;
    try {
        row->handler(worker, text);
    } catch (const std::exception& error) {
        qDebug("command \"%s\" failed: %s", row->word, error.what());
    }
}

/// Commands of one burst are separated by NUL bytes; a line feed separates nothing.
void dispatchBurst(Worker& worker, CommandBuffer& buffer)
{
    char* p = buffer.bytes;
    do {
        dispatch(worker, p);
        while (p[1] != '\0')
            ++p;
        p += 2;
    } while (p < buffer.bytes + ReceivedBytes);
}

/// Keeps multicast routing in step with the Ethernet link.
void watchLink()
{
    const bool connected = systconf.ethernetConneted();
    if (!connected) {
        EthernetConnected = 0;
        net.StopSmcroute();
    } else if (EthernetConnected) {
        if (net.joinRequested.load(std::memory_order_acquire)) {
            EthernetConnected = 1;
            net.SendJoinMulticast();
        }
    } else {
        net.StopSmcroute();
        net.StartSmcroute();
        usleep(500000); // the routing daemon answers only once it is up
        EthernetConnected = 1;
        net.SendJoinMulticast();
    }
}

} // namespace

Worker::Worker()
    : QObject(nullptr)
    , m_timer(nullptr)
    , m_pSocket(nullptr)
    , m_dabStarted(false) // read by the dispatcher before any DAB command has set it
    , m_dabPrefix{'d', 'a', 'b'}
    , m_dabPrefixLength(3)
{
    prepareInstrument();
    connect(&m_timer, SIGNAL(timeout()), this, SLOT(doWork()));
    m_timer.setSingleShot(true);
    m_timer.start(pollIntervalMs);
}

Worker::~Worker() = default;

void Worker::doWork()
{
    if (uart.IsInputBytesPending() >= 1) {
        CommandBuffer buffer;
        if (collectBurst(buffer))
            dispatchBurst(*this, buffer);
    }
    watchLink();
    m_timer.start(pollIntervalMs);
}
