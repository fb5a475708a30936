#include "client/panel/tabletree.h"

#include "client/panel/treebuilder.h"
#include "client/psi/mpegtsnames.h"
#include "client/psi/sections.h"
#include "client/psi/servicetext.h"
#include "client/psi/t2mipacket.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <utility>

namespace tessary::panel {

using client::Bytes;

namespace {

constexpr std::uint8_t pmt = 0x02;
constexpr std::uint8_t nitActual = 0x40;
constexpr std::uint8_t nitOther = 0x41;
constexpr std::uint8_t sdtActual = 0x42;
constexpr std::uint8_t sdtOther = 0x46;

std::string tableName(std::uint32_t id)
{
    switch (id) {
    case pmt:
        return "program map";
    case nitActual:
        return "network information, actual network";
    case nitOther:
        return "network information, other network";
    case sdtActual:
        return "service description, actual transport stream";
    case sdtOther:
        return "service description, other transport stream";
    default:
        return "another table";
    }
}

/// Adds the children's node; its bytes are from `begin` to where the builder is now.
void close(Json& nodes, const std::string& name, const Json& value, std::size_t begin, std::size_t end,
    Json children)
{
    Json node = TreeBuilder::node(name, value, begin, end - begin);
    node["children"] = std::move(children);
    nodes.push_back(std::move(node));
}

/// Length byte and text of an SI table.
void addText(Json& nodes, TreeBuilder& in, const char* name, const Bytes& all, std::uint16_t network)
{
    const std::uint32_t length = in.number(nodes, (std::string(name) + "_length").c_str(), 1);
    const std::size_t size = std::min<std::size_t>(length, in.left());
    in.text(nodes, name, size, client::servicesText(all.data() + in.at(), size, network));
}

std::string serviceTypeText(std::uint32_t type)
{
    return client::serviceTypeName(static_cast<std::uint8_t>(type));
}

std::string runningText(std::uint32_t status)
{
    return client::runningStatusName(static_cast<std::uint8_t>(status));
}

std::string descriptorText(std::uint32_t tag)
{
    return client::descriptorName(static_cast<std::uint8_t>(tag));
}

void addDescriptorBody(
    Json& nodes, TreeBuilder in, std::uint32_t tag, const Bytes& all, std::uint16_t network)
{
    constexpr std::uint32_t language = 0x0A;
    constexpr std::uint32_t networkName = 0x40;
    constexpr std::uint32_t serviceList = 0x41;
    constexpr std::uint32_t service = 0x48;
    if (tag == service) {
        in.number(nodes, "service_type", 1, 8, &serviceTypeText);
        addText(nodes, in, "service_provider_name", all, network);
        addText(nodes, in, "service_name", all, network);
    } else if (tag == networkName) {
        in.text(
            nodes, "network_name", in.left(), client::servicesText(all.data() + in.at(), in.left(), network));
    } else if (tag == serviceList) {
        while (in.left() >= 3) {
            in.number(nodes, "service_id", 2);
            in.number(nodes, "service_type", 1, 8, &serviceTypeText);
        }
    } else if (tag == language) {
        while (in.left() >= 4) {
            in.text(nodes, "ISO_639_language_code", 3,
                std::string(all.begin() + static_cast<std::ptrdiff_t>(in.at()),
                    all.begin() + static_cast<std::ptrdiff_t>(in.at() + 3)));
            in.number(nodes, "audio_type", 1);
        }
    }
    if (in.left() > 0)
        in.bytes(nodes, "data", in.left());
}

void addDescriptors(Json& nodes, TreeBuilder in, const Bytes& all, std::uint16_t network)
{
    while (in.left() >= 2) {
        const std::size_t begin = in.at();
        Json children = Json::array();
        const std::uint32_t tag = in.number(children, "descriptor_tag", 1, 8, &descriptorText);
        const std::uint32_t length = in.number(children, "descriptor_length", 1);
        addDescriptorBody(children, in.part(length), tag, all, network);
        close(
            nodes, client::descriptorName(static_cast<std::uint8_t>(tag)), nullptr, begin, in.at(), children);
    }
    if (in.left() > 0)
        in.bytes(nodes, "left over", in.left());
}

/// A length of 12 bits and as many bytes of descriptors.
void addDescriptorLoop(
    Json& nodes, TreeBuilder& in, const char* lengthName, const Bytes& all, std::uint16_t network)
{
    const std::uint32_t length = in.number(nodes, lengthName, 2, 12);
    const std::size_t begin = in.at();
    Json children = Json::array();
    addDescriptors(children, in.part(length), all, network);
    if (length > 0)
        close(nodes, "descriptors", nullptr, begin, in.at(), children);
}

void addServices(Json& nodes, TreeBuilder& in, const Bytes& all)
{
    const auto network = static_cast<std::uint16_t>(in.number(nodes, "original_network_id", 2));
    in.number(nodes, "reserved_future_use", 1);
    while (in.left() >= 5) {
        const std::size_t begin = in.at();
        Json children = Json::array();
        const std::uint32_t id = in.number(children, "service_id", 2);
        const std::uint32_t flags = in.peek(1);
        in.text(children, "EIT flags", 1,
            std::string("schedule ") + ((flags & 2U) != 0 ? "1" : "0") + ", present/following "
                + ((flags & 1U) != 0 ? "1" : "0"));
        const std::uint32_t status = in.peek(1);
        in.bits(children, "running_status", runningText(status >> 5U));
        in.bits(children, "free_CA_mode", (status >> 4U & 1U) != 0 ? "1" : "0");
        addDescriptorLoop(children, in, "descriptors_loop_length", all, network);
        close(nodes, "service", id, begin, in.at(), children);
    }
}

void addNetwork(Json& nodes, TreeBuilder& in, const Bytes& all, std::uint16_t network)
{
    addDescriptorLoop(nodes, in, "network_descriptors_length", all, network);
    in.number(nodes, "transport_stream_loop_length", 2, 12);
    while (in.left() >= 6) {
        const std::size_t begin = in.at();
        Json children = Json::array();
        const std::uint32_t id = in.number(children, "transport_stream_id", 2);
        in.number(children, "original_network_id", 2);
        addDescriptorLoop(children, in, "transport_descriptors_length", all, network);
        close(nodes, "transport stream", id, begin, in.at(), children);
    }
}

void addProgram(Json& nodes, TreeBuilder& in, const Bytes& all)
{
    in.number(nodes, "PCR_PID", 2, 13);
    addDescriptorLoop(nodes, in, "program_info_length", all, 0);
    while (in.left() >= 5) {
        const std::size_t begin = in.at();
        Json children = Json::array();
        in.number(children, "stream_type", 1);
        const std::uint32_t pid = in.number(children, "elementary_PID", 2, 13);
        addDescriptorLoop(children, in, "ES_info_length", all, 0);
        close(nodes, "elementary stream", ctl::pidText(static_cast<std::uint16_t>(pid)), begin, in.at(),
            children);
    }
}

void addBody(Json& nodes, TreeBuilder in, const Bytes& all, std::uint32_t table, std::uint16_t extension)
{
    if (table == sdtActual || table == sdtOther)
        addServices(nodes, in, all);
    else if (table == nitActual || table == nitOther)
        addNetwork(nodes, in, all, extension);
    else if (table == pmt)
        addProgram(nodes, in, all);
    if (in.left() > 0)
        in.bytes(nodes, "left over", in.left());
}

const char* extensionName(std::uint32_t table)
{
    return table == pmt                           ? "program_number"
        : table == nitActual || table == nitOther ? "network_id"
                                                  : "transport_stream_id";
}

/// One section, or what is left when it is cut short.
Json sectionNode(const Bytes& all, std::size_t begin, std::size_t size, bool crcCorrect)
{
    constexpr std::size_t crcSize = 4;
    TreeBuilder in(all, begin, begin + size);
    Json children = Json::array();
    const std::uint32_t table = in.number(children, "table_id", 1, 8, &tableName);
    in.number(children, "section_length", 2, 12);
    const std::uint32_t extension = in.number(children, extensionName(table), 2);
    in.bits(children, "version_number", in.peek(1) >> 1U & 0x1FU);
    in.number(children, "current_next_indicator", 1, 1);
    const std::uint32_t number = in.number(children, "section_number", 1);
    in.number(children, "last_section_number", 1);
    addBody(children, in.part(in.left() - std::min(in.left(), crcSize)), all, table,
        static_cast<std::uint16_t>(extension));
    in.text(children, "CRC_32", crcSize, crcCorrect ? "right" : "wrong");
    Json node =
        TreeBuilder::node(tableName(table) + ", section " + std::to_string(number), nullptr, begin, size);
    node["children"] = children;
    return node;
}

std::string hexOf(const Bytes& bytes)
{
    return ctl::hexText(std::string(bytes.begin(), bytes.end()));
}

std::string packetTypeText(std::uint32_t type)
{
    return client::t2miTypeName(static_cast<int>(type));
}

void addBasebandFrame(Json& nodes, TreeBuilder in)
{
    in.number(nodes, "frame_idx", 1);
    in.number(nodes, "plp_id", 1);
    in.text(nodes, "intl_frame_start", 1, (in.peek(1) >> 7U) != 0 ? "1" : "0");
    in.bytes(nodes, "BBHEADER", 10);
    in.bytes(nodes, "data", in.left());
}

} // namespace

Json treeOfSections(const Bytes& sections)
{
    Json decoded = Json::array();
    const client::SplitResult split = client::splitSections(sections);
    std::size_t at = 0;
    for (const client::Section& section : split.sections) {
        decoded.push_back(sectionNode(sections, at, section.bytes.size(), section.crcCorrect));
        at += section.bytes.size();
    }
    if (!split.rest.empty())
        decoded.push_back(TreeBuilder::node("no section: " + split.problem, nullptr, at, split.rest.size()));
    return {{"hex", hexOf(sections)}, {"decoded", decoded}};
}

Json treeOfT2mi(const Bytes& packet)
{
    constexpr std::size_t crcSize = 4;
    constexpr std::uint32_t baseband = 0x00;
    TreeBuilder in(packet, 0, packet.size());
    Json nodes = Json::array();
    const auto known = client::decodeT2miPacket(packet);
    const std::uint32_t type = in.number(nodes, "packet_type", 1, 8, &packetTypeText);
    in.number(nodes, "packet_count", 1);
    in.bits(nodes, "superframe_idx", in.peek(1) >> 4U);
    in.number(nodes, "t2mi_stream_id", 2, 3);
    in.number(nodes, "payload_len", 2);
    const std::size_t size = in.left() - std::min(in.left(), crcSize);
    const std::size_t begin = in.at();
    Json payload = Json::array();
    TreeBuilder part = in.part(size);
    if (type == baseband)
        addBasebandFrame(payload, part);
    else
        part.bytes(payload, "data", size);
    close(nodes, "payload", nullptr, begin, begin + size, payload);
    in.text(nodes, "CRC-32", crcSize, known.has_value() && known->crcCorrect ? "right" : "wrong");
    Json root = TreeBuilder::node("T2-MI packet: " + packetTypeText(type), nullptr, 0, packet.size());
    root["children"] = nodes;
    return {{"hex", hexOf(packet)}, {"decoded", Json::array({root})}};
}

} // namespace tessary::panel
