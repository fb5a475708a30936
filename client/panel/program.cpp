#include "client/panel/program.h"

#include "client/tessaryctl/failure.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ; // NOLINT: POSIX names it

namespace tessary::panel {

using ctl::ExitCode;
using ctl::Failure;

namespace {

/// The panel blocks signals; its programs start without.
class Attributes
{
public:
    Attributes()
    {
        ::posix_spawnattr_init(&m_attributes);
        sigset_t none;
        sigemptyset(&none);
        sigset_t usual;
        sigfillset(&usual);
        ::posix_spawnattr_setsigmask(&m_attributes, &none);
        ::posix_spawnattr_setsigdefault(&m_attributes, &usual);
        ::posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~Attributes() { ::posix_spawnattr_destroy(&m_attributes); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    const posix_spawnattr_t* get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes{};
};

class Files
{
public:
    explicit Files(int output)
    {
        ::posix_spawn_file_actions_init(&m_actions);
        ::posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&m_actions, output, STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&m_actions, output, STDERR_FILENO);
    }
    ~Files() { ::posix_spawn_file_actions_destroy(&m_actions); }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    const posix_spawn_file_actions_t* get() const { return &m_actions; }

private:
    posix_spawn_file_actions_t m_actions{};
};

} // namespace

std::vector<std::string> asRoot(std::vector<std::string> words)
{
    if (::geteuid() != 0)
        words.insert(words.begin(), {"sudo", "-n", "--"});
    return words;
}

Program::Program(const std::vector<std::string>& words)
    : m_output(::memfd_create("output", MFD_CLOEXEC))
{
    ::fcntl(m_output, F_SETFL, O_APPEND);
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str())); // NOLINT: execve() changes nothing
    arguments.push_back(nullptr);
    const int error = ::posix_spawnp(
        &m_pid, arguments.front(), Files(m_output).get(), Attributes().get(), arguments.data(), environ);
    if (error == 0)
        return;
    ::close(m_output);
    throw Failure(ExitCode::LocalFile, "cannot start " + words.front() + ": " + std::strerror(error),
        "is it installed?");
}

Program::~Program()
{
    if (running()) {
        ::kill(m_pid, SIGTERM);
        wait();
    }
    ::close(m_output);
}

void Program::ended(int status)
{
    constexpr int bySignal = 128;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : bySignal + WTERMSIG(status);
}

bool Program::running()
{
    int status = 0;
    if (!m_status.has_value() && ::waitpid(m_pid, &status, WNOHANG) == m_pid)
        ended(status);
    return !m_status.has_value();
}

ProgramEnd Program::wait()
{
    int status = 0;
    while (!m_status.has_value()) {
        if (::waitpid(m_pid, &status, 0) == m_pid)
            ended(status);
        else if (errno != EINTR)
            m_status = -1;
    }
    return {*m_status, said()};
}

std::string Program::said() const
{
    constexpr off_t most = 4000;
    const off_t size = ::lseek(m_output, 0, SEEK_END);
    std::string text(static_cast<std::size_t>(std::min(size, most)), '\0');
    const ssize_t read = ::pread(m_output, text.data(), text.size(), size - static_cast<off_t>(text.size()));
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(read, 0)));
    return text;
}

} // namespace tessary::panel
