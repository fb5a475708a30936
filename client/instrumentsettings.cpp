#include "client/instrumentsettings.h"

#include "client/answererror.h"

#include <array>
#include <cstdio>
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

std::optional<std::string> VersionInfo::fpgaBuilt() const
{
    std::array<unsigned, 6> parts{};
    auto& [day, month, year, hour, minute, second] = parts;
    if (std::sscanf(fpga.c_str(), "%u/%u/%u %u:%u:%u", &day, &month, &year, &hour, &minute, &second)
        != static_cast<int>(parts.size()))
        return std::nullopt;
    std::array<char, 80> text{};
    std::snprintf(
        text.data(), text.size(), "%04u-%02u-%02uT%02u:%02u:%02u", year, month, day, hour, minute, second);
    return text.data();
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
