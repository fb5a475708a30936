#include "toolterminal.h"

#include "instrument.h"
#include "toolsuite.h"

#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tessary::test {

ToolTerminal::ToolTerminal(const QString& port, const QStringList& arguments, const QString& stateFolder)
{
    const QByteArray state = stateFolder.toLocal8Bit();
    std::vector<QByteArray> words;
    for (const QString& word : QStringList{toolPath(), "--port", port} + arguments)
        words.push_back(word.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    m_pid = ::forkpty(&m_far, nullptr, nullptr, nullptr);
    if (m_pid == 0) {
        ::setenv("TERM", "xterm", 1);
        ::setenv("XDG_STATE_HOME", state.constData(), 1);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
}

ToolTerminal::~ToolTerminal()
{
    if (!m_ended && waitForEnd() < 0)
        ::kill(m_pid, SIGHUP);
    ::close(m_far); // which ends one that is still there
    if (!m_ended)
        ::waitpid(m_pid, nullptr, 0);
}

void ToolTerminal::type(const char* keys) const
{
    EXPECT_GT(::write(m_far, keys, std::strlen(keys)), 0);
}

void ToolTerminal::readWhatIsThere()
{
    pollfd entry{m_far, POLLIN, 0};
    char chunk[4096];
    while (::poll(&entry, 1, 0) > 0 && (entry.revents & POLLIN) != 0) {
        const ssize_t count = ::read(m_far, chunk, sizeof chunk);
        if (count <= 0)
            break;
        m_seen.append(chunk, static_cast<int>(count));
    }
}

bool ToolTerminal::shows(const QByteArray& words)
{
    return waitUntil([&] {
        readWhatIsThere();
        return m_seen.contains(words);
    });
}

int ToolTerminal::waitForEnd()
{
    m_ended = waitUntil([this] {
        readWhatIsThere(); // else it could wait for room
        return ::waitpid(m_pid, &m_status, WNOHANG) == m_pid;
    });
    return m_ended && WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -1;
}

} // namespace tessary::test
