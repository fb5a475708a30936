#pragma once

#include "client/panel/requestlimits.h"

#include <atomic>
#include <cstdint>
#include <httplib.h>
#include <string>

namespace tessary::panel {

/// A connection to a browser with one request: it comes within limits of size and time as a whole, or not at all. The
/// HTTP library sees a request's head when all of it is there, and no more of a body than was announced.
class RequestStream : public httplib::Stream
{
public:
    enum class Head {
        Whole,
        None, ///< not a byte has come
        Late,
        TooLarge
    };

    /// `socket` and the others are borrowed. `ends`: nothing is waited for any more.
    RequestStream(int socket, const RequestLimits& limits, const std::atomic<bool>& ends);

    /// Waits for the head.
    Head awaitHead();
    /// So many bytes follow.
    void expectBody(std::uint64_t bytes);
    /// The answer is whole: waits a moment until it has been read. What still comes is thrown away, because closing on it
    /// would take the answer back.
    void finish();

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* bytes, std::size_t size) override;
    using httplib::Stream::write;
    ssize_t write(const char* bytes, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    int socket() const override { return m_socket; }

private:
    using Clock = std::chrono::steady_clock;

    bool receive(std::string& bytes) const;

    int m_socket;
    const RequestLimits& m_limits;
    const std::atomic<bool>& m_ends;
    Clock::time_point m_deadline;
    std::string m_head;
    std::size_t m_headRead = 0;
    std::string m_rest; ///< has come and not been read yet
    std::uint64_t m_bodyLeft = 0; ///< bytes
};

} // namespace tessary::panel
