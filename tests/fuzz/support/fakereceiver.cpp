// socketcom without a socket. These definitions take the place of the daemon's own.
#include "support/fakereceiver.h"

#include "link/socketcom.h"
#include "support/input.h"

#include <cstring>

namespace {

fakereceiver::Behaviour behaviour;

} // namespace

namespace fakereceiver {

void set(Behaviour next)
{
    behaviour = next;
}

} // namespace fakereceiver

socketcom::socketcom()
    : QObject(nullptr)
    , m_addr()
    , m_fd(-1)
    , m_state(-1)
{
    connectSocket();
}

socketcom::~socketcom() = default;

void socketcom::connectSocket()
{
    m_state = behaviour.failedConnections-- > 0 ? -1 : 0;
}

int socketcom::send(const char* buffer, int length)
{
    FUZZ_REQUIRE(length >= 0 && m_state == 0);
    const std::vector<char> taken(buffer, buffer + length); // reads all of it
    return behaviour.takesBlocks ? static_cast<int>(taken.size()) : -1;
}

int socketcom::read(char* buffer, int length)
{
    FUZZ_REQUIRE(length >= 0 && m_state == 0);
    const int count = behaviour.shortAnswers-- > 0 ? length / 2 : length;
    std::memset(buffer, 0x5A, static_cast<std::size_t>(count));
    return count;
}

int socketcom::get_state()
{
    return m_state;
}
