#include "client/streamtables.h"

#include "client/answererror.h"
#include "client/psi/sections.h"

#include <algorithm>
#include <set>

namespace tessary::client {

namespace {

std::vector<Section> wholeSections(const Bytes& bytes, const std::string& what)
{
    SplitResult split = splitSections(bytes);
    if (!split.problem.empty())
        throw AnswerError("the " + what + " arrived damaged: " + split.problem);
    if (!split.whole())
        throw AnswerError("the " + what + " arrived damaged: a section's CRC_32 is wrong");
    if (split.sections.empty())
        throw AnswerError("there is no section in the " + what);
    return std::move(split.sections);
}

template <typename Table> Table decoded(std::optional<Table> table, const std::string& what)
{
    if (!table.has_value())
        throw AnswerError("the " + what + " does not decode");
    return *std::move(table);
}

bool isComplete(const std::vector<Section>& sections)
{
    std::set<int> seen;
    for (const Section& section : sections)
        seen.insert(section.sectionNumber());
    return seen.size() > sections.back().lastSectionNumber();
}

} // namespace

ServiceTable readServices(const Bytes& bytes)
{
    ServiceTable table;
    const auto sections = wholeSections(bytes, "SDT");
    table.complete = isComplete(sections);
    for (const Section& section : sections) {
        ServiceDescription part = decoded(decodeSdt(section), "SDT");
        auto& all = table.services;
        all.transportStreamId = part.transportStreamId;
        all.originalNetworkId = part.originalNetworkId;
        for (auto& service : part.services) {
            const auto known = std::find_if(all.services.begin(), all.services.end(),
                [&](const auto& other) { return other.id == service.id; });
            if (known != all.services.end())
                *known = std::move(service);
            else
                all.services.push_back(std::move(service));
        }
    }
    return table;
}

NetworkTable readNetwork(const Bytes& bytes)
{
    NetworkTable table;
    const auto sections = wholeSections(bytes, "NIT");
    table.complete = isComplete(sections);
    for (const Section& section : sections) {
        NetworkInformation part = decoded(decodeNit(section), "NIT");
        auto& all = table.network;
        all.networkId = part.networkId;
        if (!part.networkName.empty())
            all.networkName = part.networkName;
        std::move(part.transportStreams.begin(), part.transportStreams.end(),
            std::back_inserter(all.transportStreams));
    }
    return table;
}

ProgramMap readProgram(const Bytes& section)
{
    return decoded(decodePmt(wholeSections(section, "PMT").front()), "PMT");
}

} // namespace tessary::client
