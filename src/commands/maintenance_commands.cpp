// Commands that probe and service the module: ping, versions, any shell command.
#include "commands/reply.h"
#include "commands/uart_command.h"
#include "commands/versionline.h"
#include "system/shell.h"
#include "system/system_config.h"

#include <cstdlib>
#include <cstring>
#include <QString>
#include <QtDebug>

namespace {

/// Sets the variable unless it has the value already: GStreamer's threads may be reading the environment, and
/// each change of it is a risk to them.
void ensureEnvironment(const char* name, const char* value)
{
    const char* present = getenv(name);
    if (!present || std::strcmp(present, value) != 0)
        setenv(name, value, 1);
}

} // namespace

void Uart_Ping(std::string line)
{
    qDebug("PINg\n");
    // The received line is the command line, the word "ping" included. Without a count option it never ends,
    // and with it all polling: the controller sends one.
    replyByteByByte(systconf.Ping(line));
}

int Uart_Version()
{
    qDebug("VERsion\n");
    return reply(versionLine());
}

int Uart_ConsoleCommand(std::string command)
{
    qDebug() << "Console command :" << command.c_str() << Qt::endl;
    // In the daemon's own environment, so that graphical programs started now or later find the compositor of
    // root.
    ensureEnvironment("QT_QPA_PLATFORM", "wayland");
    ensureEnvironment("XDG_RUNTIME_DIR", "/run/user/0");
    return runShell(command);
}
