#include "client/instrumentsettings.h"

#include "client/answererror.h"

#include <regex>

namespace tessary::client {

VersionInfo parseVersion(const std::string& line)
{
    static const std::regex form(R"(SV: mx8 (\S+) FPGA: ?(.*?)( done=(OK|NOK))?\s*)");
    std::smatch parts;
    if (!std::regex_match(line, parts, form))
        throw AnswerError("no version line: \"" + line + "\"");
    VersionInfo info{parts[1], parts[2], std::nullopt};
    if (parts[4].matched)
        info.fpgaConfigured = parts[4] == "OK";
    return info;
}

std::string InterfaceSettings::text() const
{
    std::string text = dhcp ? "dhcp" : address + " " + mask;
    if (vlan.has_value())
        text += ";vlan_id=" + std::to_string(*vlan);
    if (!ethtoolCommand.empty())
        text += ";" + ethtoolCommand;
    return text;
}

} // namespace tessary::client
