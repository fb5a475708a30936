#pragma once

#include "test_packets.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace tessary::test {

/// Receives datagrams on a port of its own until it is told to finish; a thread of its own empties the
/// socket.
class Receiver
{
public:
    Receiver();
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    /// Joins a multicast group on the loopback interface; false where that is not possible.
    bool join(const char* group) const;

    /// All datagrams so far; call when the sender has ended. Loopback delivers before the sender's call
    /// returns.
    const std::vector<Bytes>& datagrams();

    /// The argument of tessary-send that sends to this receiver.
    std::string target(const std::string& scheme, const std::string& host = "127.0.0.1") const;

    /// Of the last datagram.
    int timeToLive() const { return m_timeToLive; }
    bool hasSome() const { return m_some; }

private:
    void finish();
    void receive();
    void takeOne();

    int m_socket;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_finish{false};
    std::atomic<bool> m_some{false};
    std::atomic<int> m_timeToLive{0};
    std::vector<Bytes> m_datagrams; // of the thread, until it is joined
    std::thread m_thread;
};

/// What these datagrams carry behind so many bytes of header.
Bytes joined(const std::vector<Bytes>& datagrams, std::size_t headerBytes = 0);

} // namespace tessary::test
