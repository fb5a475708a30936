#pragma once

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace tessary::test {

/// A pseudo terminal: the test holds the far end, the line under test opens `path`.
class PtyPair
{
public:
    PtyPair()
    {
        char name[128] = {};
        if (::openpty(&m_far, &m_near, name, nullptr, nullptr) != 0)
            throw std::runtime_error("openpty failed");
        for (const int end : {m_far, m_near})
            ::fcntl(end, F_SETFD,
                FD_CLOEXEC); // else a child that is started meanwhile keeps the line from hanging up
        m_path = name;
    }
    ~PtyPair() { hangUp(); }
    PtyPair(const PtyPair&) = delete;
    PtyPair& operator=(const PtyPair&) = delete;

    const std::string& path() const { return m_path; }

    void send(const std::string& bytes) const
    {
        if (::write(m_far, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            throw std::runtime_error("short write to the pty");
    }

    /// One read, waiting at most `milliseconds`; empty when nothing came.
    std::string receive(int milliseconds) const
    {
        pollfd entry{m_far, POLLIN, 0};
        char chunk[4096];
        if (::poll(&entry, 1, milliseconds) <= 0)
            return {};
        const ssize_t count = ::read(m_far, chunk, sizeof chunk);
        return count > 0 ? std::string(chunk, static_cast<std::size_t>(count)) : std::string();
    }

    termios settings() const
    {
        termios current{};
        ::tcgetattr(m_near, &current);
        return current;
    }

    /// Closes the test's ends, as unplugging an adapter does.
    void hangUp()
    {
        if (m_far >= 0) {
            ::close(m_far);
            ::close(m_near);
        }
        m_far = m_near = -1;
    }

private:
    int m_far = -1;
    int m_near = -1;
    std::string m_path;
};

} // namespace tessary::test
