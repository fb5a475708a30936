#include "link/socketcom.h"

#include <cstdio>
#include <cstring>
#include <QByteArray>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// Copies the path behind its first `offset` bytes into the address; what is too long is cut, the last byte
/// stays NUL.
// cppcheck-suppress constParameter ; a write to the member array changes it
void copyPath(sockaddr_un& address, const QByteArray& path, std::size_t offset)
{
    std::strncpy(address.sun_path + offset, path.constData() + offset, sizeof address.sun_path - 1 - offset);
}

} // namespace

socketcom::socketcom()
    : QObject(nullptr)
    , m_path(QStringLiteral("/usr/mysocket"))
    , m_state(-1)
{
    m_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd == -1)
        perror("socket error");
    std::memset(&m_addr, 0, sizeof m_addr);
    m_addr.sun_family = AF_UNIX;
    const QByteArray path = m_path.toUtf8();
    const bool abstractName = path.at(0) == '\0'; // such a name keeps its leading NUL
    copyPath(m_addr, path, abstractName ? 1 : 0);
    connectSocket();
}

socketcom::~socketcom()
{
    if (close(m_fd) == -1)
        perror("disconnect error");
}

void socketcom::connectSocket()
{
    m_state = ::connect(m_fd, reinterpret_cast<const sockaddr*>(&m_addr), sizeof m_addr);
    if (m_state == -1) {
        std::fputs(".", stderr);
        close(m_fd); // the number is kept: such an object is replaced, neither used nor deleted
    } else {
        std::fputs("done\n", stderr);
    }
}

int socketcom::send(const char* buffer, int length)
{
    return static_cast<int>(::send(m_fd, buffer, static_cast<std::size_t>(length), 0));
}

int socketcom::read(char* buffer, int length)
{
    return static_cast<int>(::read(m_fd, buffer, static_cast<std::size_t>(length)));
}

int socketcom::get_state()
{
    return m_state;
}
