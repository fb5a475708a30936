// runShell() that only notes, and the wrapped calls by which the daemon asks the machine.
#include "support/fakemachine.h"

#include "system/shell.h"
#include "tests/unit/support/virtualtime.h"

#include <arpa/inet.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <QProcess>
#include <sys/ioctl.h>
#include <sys/types.h>

namespace {

fakemachine::Behaviour behaviour;
std::vector<std::string> commands;

int answerInterface(unsigned long request, ifreq* asked)
{
    if (request == SIOCGIFFLAGS) {
        asked->ifr_flags = behaviour.linkUp ? IFF_UP | IFF_RUNNING : 0;
        return 0;
    }
    auto* address = reinterpret_cast<sockaddr_in*>(&asked->ifr_addr);
    address->sin_family = AF_INET;
    address->sin_addr.s_addr = htonl(request == SIOCGIFADDR ? 0xC0A80114U : 0xFFFFFF00U);
    return behaviour.linkUp ? 0 : -1;
}

} // namespace

namespace fakemachine {

void set(Behaviour next)
{
    behaviour = std::move(next);
    commands.clear();
}

const std::vector<std::string>& shellCommands()
{
    return commands;
}

} // namespace fakemachine

int runShell(const std::string& commandLine)
{
    commands.push_back(commandLine);
    return 0;
}

// The names are what the linker makes of the calls.
extern "C" {

int __real_system(const char* command);
int __real_fork();
int __real_execve(const char* program, char* const* arguments, char* const* environment);
int __real_execvp(const char* program, char* const* arguments);
int __real_ioctl(int descriptor, unsigned long request, void* argument);
std::FILE* __real_popen(const char* command, const char* type);
int __real_pclose(std::FILE* pipe);

int __wrap_system(const char* command)
{
    if (virtualtime::running())
        __builtin_trap(); // runShell() is the one way to the shell
    return __real_system(command); // the fuzzer's own
}

int __wrap_fork()
{
    if (virtualtime::running())
        __builtin_trap();
    return __real_fork();
}

int __wrap_execve(const char* program, char* const* arguments, char* const* environment)
{
    if (virtualtime::running())
        __builtin_trap();
    return __real_execve(program, arguments, environment);
}

int __wrap_execvp(const char* program, char* const* arguments)
{
    if (virtualtime::running())
        __builtin_trap();
    return __real_execvp(program, arguments);
}

int __wrap_reboot(int)
{
    __builtin_trap();
}

std::FILE* __wrap_popen(const char* command, const char* type)
{
    if (!virtualtime::running())
        return __real_popen(command, type);
    commands.emplace_back(command);
    std::string& text = behaviour.programOutput;
    return text.empty() ? nullptr : fmemopen(text.data(), text.size(), type);
}

int __wrap_pclose(std::FILE* pipe)
{
    return virtualtime::running() ? std::fclose(pipe) : __real_pclose(pipe);
}

int __wrap_ioctl(int descriptor, unsigned long request, ...)
{
    std::va_list list;
    va_start(list, request);
    void* argument = va_arg(list, void*);
    va_end(list);
    if (request == SIOCGIFFLAGS || request == SIOCGIFADDR || request == SIOCGIFNETMASK)
        return answerInterface(request, static_cast<ifreq*>(argument));
    return __real_ioctl(descriptor, request, argument);
}
}

using OpenMode = QIODevice::OpenMode;
void wrappedStart(QProcess* process, const QString& program, const QStringList& arguments,
    OpenMode mode) __asm__("__wrap__"
                           "ZN8QProcess5startERK7QStringRK11QStringList6QFlagsIN9QIODevice12OpenModeFlagEE");
void wrappedStart(QProcess*, const QString& program, const QStringList& arguments, OpenMode)
{
    commands.push_back((program + ' ' + arguments.join(' ')).toStdString());
}

bool wrappedWait(QProcess* process, int milliseconds) __asm__("__wrap__ZN8QProcess15waitForFinishedEi");
bool wrappedWait(QProcess*, int)
{
    return true;
}

QByteArray wrappedOutput(QProcess* process) __asm__("__wrap__ZN8QProcess21readAllStandardOutputEv");
QByteArray wrappedOutput(QProcess*)
{
    return QByteArray::fromStdString(behaviour.programOutput);
}

QByteArray wrappedErrors(QProcess* process) __asm__("__wrap__ZN8QProcess20readAllStandardErrorEv");
QByteArray wrappedErrors(QProcess*)
{
    return QByteArray::fromStdString(behaviour.programErrors);
}
