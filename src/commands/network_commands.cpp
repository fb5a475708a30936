#include "commands/reply.h"
#include "commands/uart_command.h"
#include "measure/ethernetmeasurement.h"
#include "media/gstsource.h"
#include "system/mydata.h"
#include "system/network.h"
#include "system/program.h"
#include "system/system_config.h"
#include "system/text.h"

#include <cstring>
#include <QtDebug>
#include <string>
#include <vector>

namespace {

/// The part of `text` from `begin` up to the next ";" or the end.
std::string upToSemicolon(const std::string& text, std::size_t begin)
{
    const std::size_t end = text.find(';', begin);
    return text.substr(begin, end == std::string::npos ? end : end - begin);
}

void setStaticAddress(const std::string& argument)
{
    const std::size_t blank = argument.find(' ');
    data.dhcp = false;
    data.ipAddress = withoutLineEnds(argument.substr(0, blank));
    data.netmask = blank == std::string::npos ? std::string() : withoutLineEnds(argument.substr(blank + 1));
    systconf.SetupInterfaceIP(&data);
    ethMes->stop();
}

/// Ends the playing and sees to a capture of the server's stream, started afresh when the server has changed.
/// False without link, which it answers; the capture then stays as it was.
bool ensureCapture()
{
    if (instance)
        instance->stop();
    const std::string filter =
        "host " + withoutLineEnds(data.serverAddress) + " && port " + withoutLineEnds(data.serverPort);
    if (!systconf.ethernetConneted()) {
        reply("not connected\n");
        return false;
    }
    if (ethMes->filter != filter || ethMes->protocol != data.serverProtocol) {
        ethMes->stop();
        ethMes->load(data.serverProtocol, filter);
    }
    if (!ethMes->running)
        ethMes->start();
    return true;
}

} // namespace

void Uart_GetInterface()
{
    qDebug("GETinterface\n");
    if (!systconf.ethernetConneted()) {
        reply("not connected\n");
        return;
    }
    std::string address;
    std::string mask;
    systconf.GetIpAddress(&address);
    systconf.GetIpNetmask(&mask);
    reply(withoutLineEnds(address) + " " + withoutLineEnds(mask) + "\n");
}

void Uart_SetInterface(std::string argument)
{
    static const char vlanWord[] = "vlan_id=";
    qDebug("SETinterface\n");
    const std::size_t ethtool = argument.find("ethtool");
    if (ethtool != std::string::npos)
        runProgram(upToSemicolon(argument, ethtool)); // link options are the controller's own choice

    const std::size_t vlan = argument.find(vlanWord);
    data.vlan = vlan != std::string::npos;
    if (data.vlan)
        data.vlanId = withoutLineEnds(upToSemicolon(argument, vlan + std::strlen(vlanWord)));

    if (argument.find("dhcp") != std::string::npos) {
        systconf.SetDHCPOn(&data);
        ethMes->stop();
        return;
    }
    setStaticAddress(argument);
}

void Uart_IpStatus()
{
    qDebug("IPStatus\n");
    const std::string text = net.GetIpStatus();
    reply(text);
    systconf.special_debug(text.c_str(), static_cast<int>(text.size()));
}

void Uart_GetIAT()
{
    qDebug("GETiat\n");
    if (!ensureCapture())
        return;
    std::vector<pcap_measured_value_struct> records;
    ethMes->getBuffer(&records);
    for (const pcap_measured_value_struct& record : records)
        reply(std::to_string(record.interArrival) + ";");
}

void Uart_GetEthernetMeasurement()
{
    qDebug("GETethernetmes\n");
    if (!ensureCapture())
        return;
    std::vector<int> values;
    ethMes->getMeasure(&values);
    for (const int value : values) {
        char bytes[sizeof value]; // raw, in the processor's little-endian order
        std::memcpy(bytes, &value, sizeof value);
        replyPart(bytes, sizeof bytes);
    }
}
