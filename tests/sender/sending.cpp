#include "sending.h"

#include "test_packets.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tessary::test {

Sending::Sending(std::vector<std::string> arguments)
    : m_output(writeFile("output.txt", {}))
{
    arguments.insert(arguments.begin(), TESSARY_SEND);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, 1, m_output.c_str(), O_WRONLY | O_APPEND, 0);
    ::posix_spawn_file_actions_adddup2(&actions, 1, 2);
    if (::posix_spawn(&m_process, TESSARY_SEND, &actions, nullptr, pointers.data(), environ) != 0)
        ADD_FAILURE() << TESSARY_SEND << " can not be started";
    ::posix_spawn_file_actions_destroy(&actions);
}

Sending::~Sending()
{
    if (m_process > 0) {
        ::kill(m_process, SIGKILL);
        wait();
    }
    std::remove(m_output.c_str());
}

int Sending::wait()
{
    int status = 0;
    ::waitpid(m_process, &status, 0);
    m_process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Sending::signal(int number) const
{
    ::kill(m_process, number);
}

std::string Sending::output() const
{
    std::ifstream file(m_output);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

double Sending::figure(const std::string& name) const
{
    const std::string text = output();
    const std::size_t at = text.find("\"" + name + "\": ");
    return at == std::string::npos ? -1 : std::strtod(text.c_str() + at + name.size() + 4, nullptr);
}

} // namespace tessary::test
