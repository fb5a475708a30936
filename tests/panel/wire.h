#pragma once

#include "client/panel/panel.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace tessary::test {

inline int portOf(const panel::Panel& panel)
{
    const std::string address = panel.address();
    return std::stoi(address.substr(address.rfind(':') + 1));
}

/// A connection on which bytes can be sent as slowly and as wrongly as one likes.
class Wire
{
public:
    explicit Wire(int port)
        : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("no connection");
    }
    ~Wire() { ::close(m_socket); }
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    /// False when the other end takes no more.
    bool send(const std::string& bytes) const
    {
        return ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
    }
    /// Until the panel closes, or so many bytes have come.
    std::string receiveAll(std::size_t most = std::string::npos) const
    {
        std::string all;
        char chunk[4096];
        for (ssize_t count = 0; all.size() < most && (count = ::recv(m_socket, chunk, sizeof chunk, 0)) > 0;)
            all.append(chunk, static_cast<std::size_t>(count));
        return all;
    }
    /// Until `end` has come; empty when the panel closes before.
    std::string receiveUntil(const std::string& end) const
    {
        std::string all;
        char byte = 0;
        while (all.find(end, all.size() < end.size() ? 0 : all.size() - end.size()) == std::string::npos) {
            if (::recv(m_socket, &byte, 1, 0) != 1)
                return {};
            all.push_back(byte);
        }
        return all;
    }

private:
    int m_socket;
};

} // namespace tessary::test
