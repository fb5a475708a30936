#pragma once

#include <functional>
#include <string>
#include <thread>

/// The DAB receiver program's end of the local socket, on a thread of the test: it takes one connection and
/// treats it as told.
class Receiver
{
public:
    /// Listens on "/usr/mysocket"; `serve` gets the connection's descriptor, which is closed behind it.
    explicit Receiver(std::function<void(int)> serve);
    /// Waits until the connection was served.
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

private:
    void listenAndServe();

    std::function<void(int)> m_serve;
    int m_listener;
    std::thread m_thread;
};

/// A private layer over the socket's folder, once per process. Empty, or the reason why it can not be had.
std::string coverSocketFolder();

/// Exactly `count` bytes of a connection, fewer when it ends.
std::string readExactly(int connection, std::size_t count);
void sendAll(int connection, const std::string& bytes);
/// Returns when the other end has read all that was sent.
void waitUntilRead(int connection);
