// T2-MI: t2mi-frame.
#include "client/psi/t2mipacket.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/t2misurvey.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/waiting.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

namespace tessary::ctl {

using namespace client;

namespace {

using Rows = std::vector<std::vector<std::string>>;

struct T2miOptions
{
    std::string file;
    bool dump = false;
    std::string type; ///< a word of t2miTypeWords(); empty for any
    bool survey = false;
    double wait = 10;
};

const char* yesOrNo(bool value)
{
    return value ? "yes" : "no";
}

Json jsonOf(const T2miPacket::BasebandHeader& header)
{
    return {{"input", header.input}, {"single_input", header.singleInput},
        {"constant_coding", header.constantCoding}, {"input_synchronized", header.inputSynchronized},
        {"null_packets_deleted", header.nullPacketsDeleted}, {"input_stream", header.inputStream},
        {"mode", header.mode.empty() ? Json() : Json(header.mode)}, {"crc8_correct", !header.mode.empty()},
        {"user_packet_bits", header.userPacketBits}, {"data_field_bits", header.dataFieldBits},
        {"sync_distance_bits", header.syncDistance}};
}

Json jsonOf(const T2miPacket::BasebandFrame& frame)
{
    return {{"frame_index", frame.frameIndex}, {"plp_id", frame.plpId},
        {"interleaving_frame_start", frame.interleavingFrameStart}, {"bytes", frame.bytes},
        {"header", frame.header.has_value() ? jsonOf(*frame.header) : Json()}};
}

Json jsonOf(const T2Signalling& l1)
{
    Json plps = Json::array();
    for (const auto& plp : l1.plps)
        plps.push_back({{"id", plp.id}, {"type", plp.type}, {"payload", plp.payload}, {"group", plp.group},
            {"code_rate", plp.codeRate}, {"modulation", plp.modulation}, {"rotated", plp.rotated},
            {"mode", plp.mode}});
    return {{"type", l1.type}, {"preamble", l1.preamble}, {"transmission_mode", l1.transmissionMode},
        {"bandwidth_extended", l1.bandwidthExtended}, {"fef", l1.futureExtensionFrames},
        {"guard_interval", l1.guardInterval}, {"l1_modulation", l1.l1Modulation},
        {"pilot_pattern", l1.pilotPattern}, {"cell_id", l1.cellId}, {"network_id", l1.networkId},
        {"t2_system_id", l1.systemId}, {"frames_per_superframe", l1.framesPerSuperframe},
        {"data_symbols_per_frame", l1.symbolsPerFrame}, {"t2_version", l1.version},
        {"frequencies_hz", l1.frequencies}, {"plps", plps}};
}

Json jsonOf(const T2miPacket::Timestamp& timestamp)
{
    using Kind = T2miPacket::Timestamp::Kind;
    const bool absolute = timestamp.kind == Kind::Absolute;
    return {{"kind",
                absolute                               ? "absolute"
                    : timestamp.kind == Kind::Relative ? "relative"
                                                       : "null"},
        {"bandwidth_hz", timestamp.bandwidth}, {"seconds_since_2000", timestamp.seconds},
        {"microseconds", timestamp.microseconds}, {"utc_offset_seconds", timestamp.utcOffset},
        {"unix_seconds", absolute ? Json(timestamp.unixSeconds()) : Json()}};
}

Json jsonOf(const T2miPacket& packet, std::size_t size)
{
    Json value{{"packet_type", packet.type}, {"packet_type_name", t2miTypeName(packet.type)},
        {"packet_count", packet.count}, {"superframe_index", packet.superframeIndex},
        {"stream_id", packet.streamId}, {"payload_bits", packet.payloadBits}, {"bytes", size},
        {"crc_correct", packet.crcCorrect}};
    if (packet.basebandFrame.has_value())
        value["baseband_frame"] = jsonOf(*packet.basebandFrame);
    if (packet.signalling.has_value())
        value["l1"] = jsonOf(*packet.signalling);
    if (packet.timestamp.has_value())
        value["timestamp"] = jsonOf(*packet.timestamp);
    return value;
}

void addRows(Rows& rows, const T2miPacket::BasebandHeader& header)
{
    rows.push_back({"input",
        header.input + (header.singleInput ? ", single" : ", stream " + std::to_string(header.inputStream))
            + (header.constantCoding ? ", constant coding" : ", variable coding")});
    rows.push_back({"mode", header.mode.empty() ? "CRC-8 WRONG" : header.mode + ", CRC-8 right"});
    rows.push_back({"synchronized", yesOrNo(header.inputSynchronized)});
    rows.push_back({"null packets", header.nullPacketsDeleted ? "deleted" : "left in"});
    if (header.mode == "normal")
        rows.push_back({"user packet", std::to_string(header.userPacketBits) + " bits"});
    constexpr int noPacket = 65535;
    rows.push_back({"data field",
        std::to_string(header.dataFieldBits) + " bits, "
            + (header.syncDistance == noPacket
                    ? "no packet begins in it"
                    : "first packet at bit " + std::to_string(header.syncDistance))});
}

void addRows(Rows& rows, const T2miPacket::BasebandFrame& frame)
{
    rows.push_back({"T2 frame",
        std::to_string(frame.frameIndex)
            + (frame.interleavingFrameStart ? ", first of an interleaving frame" : "")});
    rows.push_back({"PLP", std::to_string(frame.plpId)});
    if (frame.header.has_value())
        addRows(rows, *frame.header);
}

void addRows(Rows& rows, const T2Signalling& l1)
{
    rows.push_back({"preamble",
        l1.preamble + ", " + l1.transmissionMode + (l1.bandwidthExtended ? " extended" : "")
            + (l1.futureExtensionFrames ? ", with FEF" : "")});
    rows.push_back({"guard interval", l1.guardInterval});
    rows.push_back({"pilot pattern", l1.pilotPattern != 0 ? "PP" + std::to_string(l1.pilotPattern) : ""});
    rows.push_back({"L1 modulation", l1.l1Modulation});
    rows.push_back({"cell, network",
        std::to_string(l1.cellId) + ", " + std::to_string(l1.networkId) + "; T2 system "
            + std::to_string(l1.systemId)});
    rows.push_back({"frames", std::to_string(l1.framesPerSuperframe) + " in a superframe"});
    rows.push_back({"data symbols", std::to_string(l1.symbolsPerFrame) + " in a frame"});
    for (const auto frequency : l1.frequencies) {
        if (frequency != 0)
            rows.push_back({"frequency", fixed(frequency / 1e6, 3) + " MHz"});
    }
    for (const auto& plp : l1.plps)
        rows.push_back({"PLP", textOf(plp)});
}

void printPacket(std::ostream& out, const T2miPacket& packet, std::size_t size)
{
    Rows rows{{"packet type", std::to_string(packet.type) + ", " + t2miTypeName(packet.type)},
        {"packet count", std::to_string(packet.count)},
        {"superframe", std::to_string(packet.superframeIndex)},
        {"T2-MI stream", std::to_string(packet.streamId)},
        {"size", std::to_string(size) + " bytes, payload " + std::to_string(packet.payloadBits) + " bits"},
        {"CRC-32", packet.crcCorrect ? "right" : "WRONG"}};
    if (packet.basebandFrame.has_value())
        addRows(rows, *packet.basebandFrame);
    if (packet.signalling.has_value())
        addRows(rows, *packet.signalling);
    if (packet.timestamp.has_value())
        rows.push_back({"timestamp", textOf(*packet.timestamp)});
    out << tableOf(rows);
}

[[noreturn]] void throwNoPacket()
{
    throw Failure(ExitCode::Nothing, "no T2-MI frame",
        "set a T2-MI server and scan: tessaryctl scan udp+t2mi 239.0.0.1 1234 4096 0; tessaryctl scan of the "
        "same stream as plain udp or rtp shows which PID carries T2-MI");
}

T2miPacket decoded(const Bytes& bytes)
{
    auto packet = decodeT2miPacket(bytes);
    if (!packet.has_value())
        throw Failure(ExitCode::BadAnswer, std::to_string(bytes.size()) + " bytes that are no T2-MI packet",
            "ask again");
    return *std::move(packet);
}

/// The instrument gives the last packet, of whatever type: the wanted one is waited for.
Bytes awaitPacket(Controller& controller, const T2miOptions& options)
{
    Bytes bytes = controller.t2miFrame();
    if (options.type.empty() || bytes.empty())
        return bytes;
    const auto type = t2miTypeOf(options.type);
    const Deadline deadline(options.wait);
    const WaitingFor shown("a packet of this type");
    while (bytes.empty() || decoded(bytes).type != type) {
        if (deadline.isOver())
            throw Failure(ExitCode::Nothing,
                "no T2-MI packet of type " + options.type + " among the last ones for "
                    + fixed(options.wait, 0) + " s",
                "wait longer with --wait; tessaryctl t2mi-frame --survey tells which types are to be seen: "
                "one "
                "that shares a transport stream packet with a later one never is the last");
        bytes = controller.t2miFrame();
    }
    return bytes;
}

void writeFile(const std::string& file, const Bytes& bytes)
{
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush())
        throw Failure(
            ExitCode::LocalFile, "cannot write " + file + ": " + std::strerror(errno), "name another file");
}

void showPacket(Context& context, const T2miOptions& options)
{
    const Bytes bytes = awaitPacket(context.controller(), options);
    if (bytes.empty())
        throwNoPacket();
    const T2miPacket packet = decoded(bytes);
    if (!options.file.empty())
        writeFile(options.file, bytes);
    const std::string raw(bytes.begin(), bytes.end());
    if (context.json()) {
        Json value = jsonOf(packet, bytes.size());
        value["hex"] = hexText(raw);
        return context.print(value);
    }
    printPacket(context.out(), packet, bytes.size());
    if (options.dump)
        context.out() << '\n' << hexDump(raw);
    context.out() << std::flush;
}

Json jsonOf(const T2miSurvey& survey)
{
    Json packets = Json::array();
    for (const auto& [type, count] : survey.packets)
        packets.push_back(
            {{"packet_type", type}, {"packet_type_name", t2miTypeName(type)}, {"samples", count}});
    Json frames = Json::array();
    for (const auto& [plp, count] : survey.frames)
        frames.push_back({{"plp_id", plp}, {"samples", count}});
    return {{"packets", packets}, {"crc_wrong", survey.wrong}, {"stream_ids", survey.streamIds},
        {"plps", survey.plps()}, {"baseband_frames", frames},
        {"l1", survey.signalling.has_value() ? jsonOf(*survey.signalling) : Json()}};
}

void printSurvey(std::ostream& out, const T2miSurvey& survey)
{
    Rows rows{{"packet type", "samples"}};
    for (const auto& [type, count] : survey.packets)
        rows.push_back({t2miTypeName(type), std::to_string(count)});
    if (survey.wrong != 0)
        rows.push_back({"CRC-32 WRONG", std::to_string(survey.wrong)});
    out << tableOf(rows) << "\nPLPs: " << textOf(survey.plps()) << '\n';
    if (survey.signalling.has_value()) {
        Rows l1;
        addRows(l1, *survey.signalling);
        out << '\n' << tableOf(l1);
    }
    out << std::flush;
}

void survey(Context& context, const T2miOptions& options)
{
    const T2miSurvey survey = surveyT2mi(context.controller(), options.wait, false);
    if (survey.empty())
        throwNoPacket();
    if (context.json())
        context.print(jsonOf(survey));
    else
        printSurvey(context.out(), survey);
}

} // namespace

void addT2miFrame(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "t2mi-frame",
        "Fetch the last T2-MI packet and take it apart, or tell what packets and PLPs there are");
    auto options = std::make_shared<T2miOptions>();
    CLI::Option* out = context.hosted()
        ? nullptr
        : sub->add_option("-o,--out", options->file, "write the packet's bytes there")->type_name("FILE");
    sub->add_flag("--dump", options->dump, "show the bytes, too");
    auto* type = sub->add_option("--type", options->type, "wait for a packet of this type")
                     ->check(CLI::IsMember(t2miTypeWords()));
    auto* surveying = sub->add_flag("--survey", options->survey,
        "look at the last packet over and over while --wait lasts, and tell types, PLPs and L1");
    surveying->excludes(type)->excludes("--dump");
    if (out != nullptr)
        surveying->excludes(out);
    sub->add_option("--wait", options->wait, "seconds to wait for the type, or to survey")
        ->check(between(0.0, 3600.0))
        ->capture_default_str();
    sub->callback([&context, options] {
        if (options->survey)
            survey(context, *options);
        else
            showPacket(context, *options);
    });
}

} // namespace tessary::ctl
