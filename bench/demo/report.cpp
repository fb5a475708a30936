#include "demo/report.h"

#include "client/mpegtsnames.h"
#include "client/sections.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <stdexcept>

namespace tessary::demo {

using namespace client;

namespace {

std::vector<Section> wholeSections(const Bytes& bytes, const std::string& what)
{
    const SplitResult split = splitSections(bytes);
    if (bytes.empty())
        throw std::runtime_error("no " + what + " came; is the stream on the air?");
    if (!split.whole())
        throw std::runtime_error(
            what + " is damaged: " + (split.problem.empty() ? "wrong CRC_32" : split.problem));
    return split.sections;
}

template <typename Table> Table decoded(std::optional<Table> table, const std::string& what)
{
    if (!table.has_value())
        throw std::runtime_error(what + " does not decode");
    return *std::move(table);
}

/// Pads UTF-8 text to a width in characters; setw counts bytes.
std::string padded(const std::string& text, std::size_t width)
{
    const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; };
    const auto extra = static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continues));
    const std::size_t characters = text.size() - extra;
    return text + std::string(width > characters ? width - characters : 1, ' ');
}

} // namespace

ServiceDescription readServices(const Bytes& sections)
{
    ServiceDescription all;
    for (const Section& section : wholeSections(sections, "the SDT")) {
        const ServiceDescription part = decoded(decodeSdt(section), "the SDT");
        all.transportStreamId = part.transportStreamId;
        all.originalNetworkId = part.originalNetworkId;
        for (const auto& service : part.services) {
            const auto same = [&](const auto& known) { return known.id == service.id; };
            if (std::none_of(all.services.begin(), all.services.end(), same))
                all.services.push_back(service);
        }
    }
    return all;
}

NetworkInformation readNetwork(const Bytes& sections)
{
    NetworkInformation all;
    for (const Section& section : wholeSections(sections, "the NIT")) {
        NetworkInformation part = decoded(decodeNit(section), "the NIT");
        part.transportStreams.insert(
            part.transportStreams.begin(), all.transportStreams.begin(), all.transportStreams.end());
        if (part.networkName.empty())
            part.networkName = all.networkName;
        all = std::move(part);
    }
    return all;
}

ProgramMap readProgram(const Bytes& section)
{
    return decoded(decodePmt(wholeSections(section, "the PMT").front()), "the PMT");
}

void printServices(std::ostream& out, const ServiceDescription& services)
{
    out << "    transport stream " << services.transportStreamId << ", original network "
        << services.originalNetworkId << '\n';
    for (const auto& service : services.services)
        out << "    " << std::setw(5) << service.id << "  " << padded(service.name, 28)
            << padded(service.provider, 14) << serviceTypeName(service.type)
            << (service.scrambled ? ", scrambled" : "") << '\n';
}

void printNetwork(std::ostream& out, const NetworkInformation& network)
{
    out << "    network " << network.networkId << " \"" << network.networkName << "\"\n";
    for (const auto& stream : network.transportStreams) {
        out << "    transport stream " << stream.transportStreamId << ", services";
        for (const auto& service : stream.services)
            out << ' ' << service.serviceId;
        out << (stream.services.empty() ? " not listed\n" : "\n");
    }
}

void printProgram(std::ostream& out, const ProgramMap& program)
{
    out << "    program " << program.programNumber << ", PCR on PID " << program.pcrPid << '\n';
    for (const auto& stream : program.streams)
        out << "    PID " << std::setw(4) << stream.pid << "  " << streamTypeName(stream.type)
            << (stream.language.empty() ? "" : ", ") << stream.language << '\n';
}

} // namespace tessary::demo
