#include "receiver.h"

#include "support/eventually.h"
#include "support/privatemachine.h"

#include <cstring>
#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr const char* path = "/usr/mysocket";

int makeListener()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    unlink(path);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || listen(listener, 4) != 0) {
        close(listener);
        return -1;
    }
    return listener;
}

} // namespace

Receiver::Receiver(std::function<void(int)> serve)
    : m_serve(std::move(serve))
    , m_listener(makeListener())
{
    m_thread = std::thread([this] { listenAndServe(); });
}

Receiver::~Receiver()
{
    m_thread.join();
    close(m_listener);
    unlink(path);
}

void Receiver::listenAndServe()
{
    pollfd waiting{m_listener, POLLIN, 0};
    if (poll(&waiting, 1, patienceMs) != 1)
        return;
    const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    m_serve(connection);
    close(connection);
}

std::string coverSocketFolder()
{
    static const std::string result = privatemachine::coverWithLayer("/usr");
    return result;
}

std::string readExactly(int connection, std::size_t count)
{
    std::string bytes(count, '\0');
    std::size_t done = 0;
    while (done < count) {
        const ssize_t n = read(connection, &bytes[done], count - done);
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    bytes.resize(done);
    return bytes;
}

void waitUntilRead(int connection)
{
    EXPECT_TRUE(eventually([connection] {
        int unread = 0;
        return ioctl(connection, SIOCOUTQ, &unread) == 0 && unread == 0;
    }));
}

void sendAll(int connection, const std::string& bytes)
{
    [[maybe_unused]] const ssize_t sent = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}
