#include "client/panel/instrumentlogs.h"

#include "client/tessaryctl/clocktime.h"

namespace tessary::panel {

void InstrumentLogs::follow()
{
    constexpr std::size_t kept = 300;
    Json commands = Json::array();
    for (const std::string& line : m_commands.newLines()) {
        Json command = Json::parse(line, nullptr, false);
        if (!command.is_object())
            continue;
        command["time"] = ctl::isoTime(ctl::wallTimeOf(command.value("wall", 0.0)));
        commands.push_back(command);
    }
    m_hub.append("commands", commands, kept);
    Json said = Json::array();
    for (const std::string& line : m_daemon.newLines())
        said.push_back({{"time", ctl::isoTime(std::chrono::system_clock::now())}, {"text", line}});
    m_hub.append("daemon_log", said, kept);
}

} // namespace tessary::panel
