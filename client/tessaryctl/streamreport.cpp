#include "client/tessaryctl/streamreport.h"

#include "client/psi/conditionalaccess.h"
#include "client/psi/delivery.h"
#include "client/psi/languages.h"
#include "client/psi/mpegtsnames.h"
#include "client/psi/streamkind.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

namespace tessary::ctl {

using namespace client;

namespace {

/// "0x0b00 Conax".
std::string systemText(std::uint16_t systemId)
{
    const std::string name = conditionalAccessName(systemId);
    return "0x" + hexText({static_cast<char>(systemId >> 8U), static_cast<char>(systemId)})
        + (name.empty() ? "" : " " + name);
}

bool carries(const ProgramMap& program, StreamKind::Medium medium)
{
    return std::any_of(program.streams.begin(), program.streams.end(),
        [&](const auto& stream) { return kindOf(program, stream).medium == medium; });
}

/// What is out of the ordinary of a program, for example "no picture, scrambled?"; empty for most.
std::string remarkOn(const ProgramMap& program, const ServiceDescription::Service* service)
{
    const bool picture = carries(program, StreamKind::Medium::Picture);
    const bool sound = carries(program, StreamKind::Medium::Sound);
    std::string text = picture && sound ? ""
        : picture                       ? "no sound"
        : sound                         ? "no picture"
                                        : "neither picture nor sound";
    const bool sure = service != nullptr && service->scrambled;
    if (sure || !conditionalAccessOf(program).empty())
        text += std::string(text.empty() ? "" : ", ") + (sure ? "scrambled" : "scrambled?");
    return text;
}

void printServices(std::ostream& out, const StreamReport& report)
{
    const ServiceDescription& table = report.services->services;
    out << "Transport stream " << table.transportStreamId << ", original network " << table.originalNetworkId
        << ", " << table.services.size() << (table.services.size() == 1 ? " service" : " services")
        << (report.services->complete ? "" : " (the SDT is not complete yet)") << "\n\n";
    const bool numbered = std::any_of(table.services.begin(), table.services.end(),
        [&](const auto& service) { return report.channelOf(service.id).has_value(); });
    std::vector<std::vector<std::string>> rows{{"program", "service", "provider", "kind", "status"}};
    if (numbered)
        rows[0].insert(rows[0].begin() + 1, "channel");
    for (const auto& service : table.services) {
        rows.push_back({std::to_string(service.id), printable(service.name), printable(service.provider),
            serviceTypeName(service.type),
            runningStatusName(service.runningStatus) + (service.scrambled ? ", scrambled" : "")});
        const auto channel = report.channelOf(service.id);
        if (numbered)
            rows.back().insert(rows.back().begin() + 1, channel.has_value() ? std::to_string(*channel) : "");
    }
    out << tableOf(rows);
}

void printPrograms(std::ostream& out, const StreamReport& report)
{
    for (const ProgramMap& program : report.programs) {
        out << '\n';
        const auto* service = report.serviceOf(program.programNumber);
        out << "Program " << program.programNumber;
        if (service != nullptr && !service->name.empty())
            out << "  " << printable(service->name);
        const std::string remark = remarkOn(program, service);
        out << (remark.empty() ? "" : "  (" + remark + ")") << '\n';
        printProgram(out, program, "  ");
    }
}

/// "1: 3401, 100: 3410 (hidden)".
std::string textOf(const std::vector<LogicalChannel>& channels)
{
    std::string text;
    for (const LogicalChannel& channel : channels)
        text += (text.empty() ? "" : ", ") + std::to_string(channel.number) + ": "
            + std::to_string(channel.serviceId) + (channel.visible ? "" : " (hidden)")
            + (channel.simulcast ? " (HD)" : "");
    return text;
}

void printNetwork(std::ostream& out, const StreamReport& report)
{
    const NetworkInformation& network = report.network->network;
    out << "\nNetwork " << network.networkId << "  " << printable(network.networkName)
        << (report.network->complete ? "" : "  (the NIT is not complete yet)") << '\n';
    for (const auto& stream : network.transportStreams) {
        out << "  transport stream " << stream.transportStreamId << ", original network "
            << stream.originalNetworkId;
        if (!stream.services.empty()) {
            out << ", services";
            for (const auto& service : stream.services)
                out << ' ' << service.serviceId;
        }
        out << '\n';
        for (const Delivery& delivery : deliveriesOf(stream.descriptors))
            out << "    " << textOf(delivery) << '\n';
        const auto channels = logicalChannelsOf(stream.descriptors);
        if (!channels.empty())
            out << "    logical channels " << textOf(channels) << '\n';
    }
}

Json jsonOf(const Delivery& delivery)
{
    const auto textOrNull = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
    const auto numberOrNull = [](std::uint64_t number) { return number == 0 ? Json() : Json(number); };
    const auto valueOrNull = [](const std::optional<int>& value) { return value ? Json(*value) : Json(); };
    return {{"system", delivery.system}, {"frequencies_hz", delivery.frequencies},
        {"modulation", textOrNull(delivery.modulation)}, {"bandwidth_hz", numberOrNull(delivery.bandwidth)},
        {"symbol_rate", numberOrNull(delivery.symbolRate)}, {"code_rate", textOrNull(delivery.codeRate)},
        {"guard_interval", textOrNull(delivery.guardInterval)},
        {"transmission_mode", textOrNull(delivery.transmissionMode)},
        {"polarization", textOrNull(delivery.polarization)},
        {"orbital_position", textOrNull(delivery.orbitalPosition)},
        {"roll_off", textOrNull(delivery.rollOff)}, {"plp", valueOrNull(delivery.plpId)},
        {"t2_system_id", valueOrNull(delivery.systemId)},
        {"input_stream", valueOrNull(delivery.inputStream)}};
}

Json jsonOf(const std::vector<LogicalChannel>& channels)
{
    Json list = Json::array();
    for (const LogicalChannel& channel : channels)
        list.push_back({{"service_id", channel.serviceId}, {"number", channel.number},
            {"visible", channel.visible}, {"simulcast", channel.simulcast}});
    return list;
}

Json jsonOf(const ServiceDescription::Service& service)
{
    Json value;
    value["service_id"] = service.id;
    value["name"] = service.name;
    value["provider"] = service.provider;
    value["type"] = service.type;
    value["type_name"] = serviceTypeName(service.type);
    value["running_status"] = service.runningStatus;
    value["running_status_name"] = runningStatusName(service.runningStatus);
    value["scrambled"] = service.scrambled;
    return value;
}

Json jsonOf(const std::vector<Language>& languages)
{
    Json list = Json::array();
    for (const Language& language : languages)
        list.push_back({{"code", language.code}, {"use", language.use}});
    return list;
}

Json jsonOf(const NetworkTable& table)
{
    Json streams = Json::array();
    for (const auto& stream : table.network.transportStreams) {
        Json services = Json::array();
        for (const auto& service : stream.services)
            services.push_back({{"service_id", service.serviceId}, {"type", service.type}});
        Json deliveries = Json::array();
        for (const Delivery& delivery : deliveriesOf(stream.descriptors))
            deliveries.push_back(jsonOf(delivery));
        streams.push_back({{"transport_stream_id", stream.transportStreamId},
            {"original_network_id", stream.originalNetworkId}, {"services", services},
            {"delivery", deliveries}, {"logical_channels", jsonOf(logicalChannelsOf(stream.descriptors))}});
    }
    Json value;
    value["network_id"] = table.network.networkId;
    value["name"] = table.network.networkName;
    value["complete"] = table.complete;
    value["transport_streams"] = streams;
    return value;
}

} // namespace

const ProgramMap* StreamReport::programOf(std::uint16_t serviceId) const
{
    const auto found = std::find_if(
        programs.begin(), programs.end(), [&](const ProgramMap& p) { return p.programNumber == serviceId; });
    return found != programs.end() ? &*found : nullptr;
}

const ServiceDescription::Service* StreamReport::serviceOf(std::uint16_t id) const
{
    if (!services.has_value())
        return nullptr;
    const auto& all = services->services.services;
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& service) { return service.id == id; });
    return found != all.end() ? &*found : nullptr;
}

std::optional<std::uint16_t> StreamReport::t2miPid() const
{
    for (const ProgramMap& program : programs) {
        for (const auto& stream : program.streams) {
            if (kindOf(program, stream).carriesT2mi())
                return stream.pid;
        }
    }
    return std::nullopt;
}

std::optional<int> StreamReport::channelOf(std::uint16_t serviceId) const
{
    if (!services.has_value() || !network.has_value())
        return std::nullopt;
    for (const auto& stream : network->network.transportStreams) {
        if (stream.transportStreamId != services->services.transportStreamId
            || stream.originalNetworkId != services->services.originalNetworkId)
            continue;
        for (const LogicalChannel& channel : logicalChannelsOf(stream.descriptors)) {
            if (channel.serviceId == serviceId && !channel.simulcast)
                return channel.number;
        }
    }
    return std::nullopt;
}

std::string StreamReport::servicesWithoutProgram() const
{
    std::string text;
    if (!services.has_value())
        return text;
    for (const auto& service : services->services.services) {
        if (programOf(service.id) == nullptr)
            text += (text.empty() ? "" : ", ") + std::to_string(service.id);
    }
    return text;
}

void printProgram(std::ostream& out, const ProgramMap& program, const std::string& indent)
{
    std::vector<std::vector<std::string>> rows{{"PID", "type", "stream", "language"}};
    for (const auto& stream : program.streams) {
        const std::string type = hexText(std::string(1, static_cast<char>(stream.type)));
        rows.push_back({pidText(stream.pid), "0x" + type,
            kindOf(program, stream).text + (stream.pid == program.pcrPid ? ", PCR" : ""),
            printable(textOf(languagesOf(stream.descriptors)))});
    }
    out << tableOf(rows, indent);
    const bool own = std::none_of(program.streams.begin(), program.streams.end(),
        [&](const auto& stream) { return stream.pid == program.pcrPid; });
    if (program.pcrPid == ProgramMap::noPcr)
        out << indent << "no PCR\n";
    else if (own)
        out << indent << pidText(program.pcrPid) << "  PCR\n";
    for (const auto& system : conditionalAccessOf(program))
        out << indent << "conditional access " << systemText(system.systemId) << ", ECM on PID "
            << pidText(system.pid) << '\n';
}

void printReport(std::ostream& out, const StreamReport& report)
{
    if (report.services.has_value())
        printServices(out, report);
    else
        out << "No SDT: the stream names no services.\n";
    printPrograms(out, report);
    if (report.network.has_value())
        printNetwork(out, report);
}

Json jsonOf(const ProgramMap& program)
{
    Json streams = Json::array();
    for (const auto& stream : program.streams) {
        Json descriptors = Json::array();
        for (const auto& descriptor : stream.descriptors)
            descriptors.push_back({{"tag", descriptor.tag},
                {"data", hexText(std::string(descriptor.data.begin(), descriptor.data.end()))}});
        Json value;
        value["pid"] = stream.pid;
        value["type"] = stream.type;
        value["type_name"] = kindOf(program, stream).text;
        const auto languages = languagesOf(stream.descriptors);
        value["language"] = languages.empty() ? "" : languages.front().code;
        value["languages"] = jsonOf(languages);
        value["descriptors"] = descriptors;
        streams.push_back(value);
    }
    Json systems = Json::array();
    for (const auto& system : conditionalAccessOf(program))
        systems.push_back({{"system_id", system.systemId}, {"system", conditionalAccessName(system.systemId)},
            {"ecm_pid", system.pid}});
    return {{"program", program.programNumber},
        {"pcr_pid", program.pcrPid != ProgramMap::noPcr ? Json(program.pcrPid) : Json()},
        {"picture", carries(program, StreamKind::Medium::Picture)},
        {"sound", carries(program, StreamKind::Medium::Sound)}, {"conditional_access", systems},
        {"streams", streams}};
}

Json jsonOf(const StreamReport& report)
{
    Json value;
    Json services = Json::array();
    if (report.services.has_value()) {
        const ServiceDescription& table = report.services->services;
        value["transport_stream_id"] = table.transportStreamId;
        value["original_network_id"] = table.originalNetworkId;
        value["complete"] = report.services->complete;
        for (const auto& service : table.services) {
            Json entry = jsonOf(service);
            const ProgramMap* program = report.programOf(service.id);
            const auto channel = report.channelOf(service.id);
            entry["logical_channel"] = channel.has_value() ? Json(*channel) : Json();
            entry["program"] = program != nullptr ? jsonOf(*program) : Json();
            services.push_back(entry);
        }
    }
    value["services"] = services;
    Json programs = Json::array();
    for (const ProgramMap& program : report.programs)
        programs.push_back(jsonOf(program));
    value["programs"] = programs;
    value["network"] = report.network.has_value() ? jsonOf(*report.network) : Json();
    return value;
}

} // namespace tessary::ctl
