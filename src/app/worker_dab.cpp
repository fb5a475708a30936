// DAB mode: display and sound go to a receiver program of its own, which the daemon starts, feeds and ends.
#include "app/commandtable.h"
#include "app/worker.h"
#include "commands/reply.h"
#include "commands/sourceselection.h"
#include "commands/uart_command.h"
#include "link/socketcom.h"

#include <cstdio>
#include <cstring>
#include <QtDebug>
#include <unistd.h>
#include <vector>

namespace {

constexpr int connectionAttempts = 80;
constexpr useconds_t attemptPauseUs = 500000;
constexpr useconds_t relayPauseUs = 400;

/// Links that failed are left behind, on purpose: each has closed its descriptor already, and deleting it
/// would close that number again, whoever has it by then. The list never ends, so that they stay reachable.
void leaveBehind(const socketcom* failed)
{
    static auto& abandoned = *new std::vector<const socketcom*>;
    abandoned.push_back(failed);
}

} // namespace

void gstStop()
{
    discardSource();
}

void Worker::startDAB()
{
    gstStop();
    usleep(200000); // the display and the sound card come free
    qDebug("Tessary  : systemctl start weston");
    Uart_ConsoleCommand("systemctl start weston");
    sleep(3);
    qDebug("Tessary  : command:/home/ondrak/qt-dab/qt-dab &");
    Uart_ConsoleCommand("/home/ondrak/qt-dab/qt-dab &");
    std::fputs("Tessar connect socket : .", stderr);
    for (int attempt = 0; attempt < connectionAttempts; ++attempt) {
        m_pSocket = new socketcom;
        usleep(attemptPauseUs);
        if (m_pSocket->get_state() != -1)
            break;
        leaveBehind(m_pSocket);
    }
    m_dabStarted = m_pSocket->get_state() != -1;
}

void Worker::stopDAB()
{
    Uart_ConsoleCommand("killall qt-dab");
    qDebug("Tessary  : killall qt-dab");
    delete m_pSocket;
    m_pSocket = nullptr;
    std::fputs("\n\nTessary  : socket deleted\n\n", stderr);
    qDebug("Tessary  : socket delete");
    sleep(4); // the receiver program takes its time to give the display back
    qDebug("Tessary  : systemctl stop weston");
    Uart_ConsoleCommand("systemctl stop weston");
    m_dabStarted = false;
}

void Worker::forwardDAB(const char* block)
{
    char bytes[dabBlockSize];
    std::memcpy(bytes, block, sizeof bytes);
    if (!m_pSocket || m_pSocket->send(bytes, dabBlockSize) != dabBlockSize)
        return;
    std::memset(bytes, 0, sizeof bytes);
    // No time-out and no limit: this is meant. An answer counts only when one read delivers all of it, and
    // the controller waits for it; a receiver program that dies here holds the daemon up until the unit
    // restarts.
    while (m_pSocket->read(bytes, dabBlockSize) != dabBlockSize)
        usleep(relayPauseUs);
    replyPart(bytes, sizeof bytes);
}
