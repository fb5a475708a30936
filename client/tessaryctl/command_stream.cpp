// Which stream, and what is in it: server, scan, info, send-ts.
#include "client/serverspec.h"
#include "client/streamqueries.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/groups.h"
#include "client/tessaryctl/link.h"
#include "client/tessaryctl/streamreport.h"
#include "client/tessaryctl/t2misurvey.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/waiting.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace tessary::ctl {

using namespace client;

namespace {

constexpr int noProgram = 0; // belongs to the network PID, so that playing it shows nothing

struct ScanOptions
{
    std::vector<std::string> server;
    std::string source = "ip";
    double wait = 12; // the NIT is the slowest table: at least every 10 s
    bool noPids = false;
};

void scanRecording(Controller& controller)
{
    if (controller.recordingSize() == 0)
        throw Failure(
            ExitCode::Nothing, "there is no recording", "make one: tessaryctl record start --seconds 10");
    controller.scanRecording();
}

/// The one that is set on this command line.
std::optional<StreamServer> serverOf(const ScanOptions& options)
{
    return options.server.empty() ? std::nullopt : std::optional(parseServer(options.server));
}

void startScan(Context& context, Controller& controller, const ScanOptions& options)
{
    if (options.source != "ip" && !options.server.empty())
        throw Failure(ExitCode::Usage, "a stream server goes with --source ip only", "leave one of them out");
    if (const auto server = serverOf(options))
        changeServer(context, controller, *server);
    if (options.source == "ip")
        requireLink(controller);
    if (options.source == "fpga")
        controller.ebsScan();
    else if (options.source == "recording")
        scanRecording(controller);
    else
        controller.scan();
}

void awaitTables(Controller& controller, StreamReport& report, double seconds)
{
    const Deadline deadline(seconds);
    const auto complete = [](const auto& table) { return table.has_value() && table->complete; };
    const WaitingFor shown("service list and network");
    for (;;) {
        if (!complete(report.services))
            report.services = servicesNow(controller);
        if (!complete(report.network))
            report.network = networkNow(controller);
        if ((complete(report.services) && complete(report.network)) || deadline.isOver())
            return;
        sleepABit();
    }
}

/// The daemon tells the PMT of the program played last and of no other: each is played for a moment, until
/// its PMT is there or the time is over.
void collectProgram(
    Controller& controller, StreamReport& report, std::uint16_t number, const Deadline& deadline)
{
    controller.play(number);
    for (;;) {
        auto program = programNow(controller);
        if (program.has_value() && program->programNumber == number)
            return report.programs.push_back(*std::move(program));
        if (deadline.isOver())
            return;
        sleepABit();
    }
}

void collectListedPrograms(Controller& controller, StreamReport& report)
{
    const auto& services = report.services->services.services;
    for (const auto& service : services)
        collectProgram(controller, report, service.id, Deadline(0));
    // The service list may have been faster than a PMT, which comes at least twice a second.
    const Deadline all(3);
    for (const auto& service : services) {
        if (report.programOf(service.id) == nullptr && !all.isOver())
            collectProgram(controller, report, service.id, Deadline(0.6));
    }
}

/// Without an SDT the PAT tells which programs there are. It is not to be had itself, but the EBS index
/// counts its programs then. An index beyond the last is as silent as a program whose PMT does not come, so
/// the end is taken to be where many in a row are silent.
void collectUnlistedPrograms(Controller& controller, StreamReport& report)
{
    constexpr int lastIndex = 255;
    constexpr int silentAtEnd = 16;
    int silent = 0;
    for (int index = 1; index <= lastIndex && silent < silentAtEnd; ++index) {
        controller.ebsPlay(index);
        auto program = programNow(controller);
        silent = program.has_value() ? 0 : silent + 1;
        if (program.has_value())
            report.programs.push_back(*std::move(program));
    }
}

void collectPrograms(Controller& controller, StreamReport& report)
{
    const WaitingFor shown("the programs' PIDs");
    if (report.services.has_value())
        collectListedPrograms(controller, report);
    else
        collectUnlistedPrograms(controller, report);
    controller.play(noProgram);
}

/// For completion.
void rememberServices(Context& context, const StreamReport& report)
{
    std::vector<std::string> names;
    if (report.services.has_value()) {
        for (const auto& service : report.services->services.services)
            names.push_back(printable(service.name));
    }
    context.memory().setServices(std::move(names));
}

/// For an IP source of which nothing was found: datagrams of the stream server come in all the same.
bool datagramsArrive(Controller& controller)
{
    // The first question starts the capture; a stream that was captured before counts as present for two
    // seconds more.
    const Deadline settled(2.5);
    for (;;) {
        const bool last = settled.isOver();
        const auto measurement = controller.measurement();
        if (!measurement.has_value())
            throwNoLink();
        if (last)
            return measurement->present;
        sleepABit();
    }
}

/// What is amiss with the PLP that was asked for, or is set from before.
std::string wrongPlp(const T2miSurvey& survey, const std::optional<StreamServer>& server)
{
    const std::string list = textOf(survey.plps());
    if (!server.has_value())
        return "nothing comes out of the PLP that is set; the T2-MI stream has PLP " + list;
    const std::string asked = std::to_string(server->t2miPlpId);
    if (survey.plps().count(server->t2miPlpId) != 0)
        return "PLP " + asked + " is in the T2-MI stream, but no table in it; there are PLP " + list;
    return survey.signalling.has_value()
        ? "PLP " + asked + " is not in the T2-MI stream, which has PLP " + list
        : "no frame of PLP " + asked + " in the T2-MI stream, only of PLP " + list;
}

/// Throws when T2-MI packets come in on the PID, but nothing out of the PLP.
void refuseWrongPlp(Controller& controller, const std::optional<StreamServer>& server)
{
    constexpr double longEnough = 5; // L1 comes with every T2 frame, at least four times a second
    const bool asked = server.has_value() && carriesT2mi(*server);
    if (controller.t2miFrame().empty() && !asked)
        return;
    const T2miSurvey survey = surveyT2mi(controller, longEnough, true);
    if (!survey.plps().empty())
        throw Failure(ExitCode::Nothing, wrongPlp(survey, server),
            "take one of these: tessaryctl scan 'udp+t2mi://ADDRESS:PORT?pid=PID&plp=PLP', or wait longer "
            "with "
            "--wait");
}

[[noreturn]] void throwNothingFound(Controller& controller, const ScanOptions& options)
{
    const std::string cause =
        "no service list, no network information and no program within " + fixed(options.wait, 0) + " s";
    if (options.source != "ip")
        throw Failure(ExitCode::Nothing, cause, "wait longer with --wait");
    const auto server = serverOf(options);
    refuseWrongPlp(controller, server);
    const bool arrives = datagramsArrive(controller);
    if (arrives && server.has_value() && carriesT2mi(*server))
        throw Failure(ExitCode::Nothing,
            "no T2-MI packet on PID " + pidText(server->t2miPid) + ", though datagrams arrive",
            "scan the stream as plain udp or rtp: its programs tell which PID carries T2-MI");
    if (arrives)
        throw Failure(ExitCode::Nothing, cause + ", though datagrams arrive",
            "check that the protocol is the sender's (udp or rtp, with or without T2-MI), or wait longer "
            "with "
            "--wait");
    throw Failure(ExitCode::Nothing, cause + ": no datagram arrives",
        "check that the stream is sent, and that address and port are right");
}

void remarkOnWhatIsMissing(const Context& context, const StreamReport& report, const ScanOptions& options)
{
    const std::string within = " within " + fixed(options.wait, 0) + " s; --wait gives it longer";
    if (!report.services.has_value())
        context.note("no SDT" + within);
    if (!report.network.has_value())
        context.note("no NIT" + within);
    const std::string silent = report.servicesWithoutProgram();
    if (!silent.empty() && !options.noPids)
        context.note("no PMT came of " + silent);
    if (const auto pid = report.t2miPid())
        context.note("PID " + pidText(*pid)
            + " carries T2-MI; to get at what is in it: tessaryctl scan "
              "'udp+t2mi://ADDRESS:PORT?pid="
            + std::to_string(*pid) + "&plp=PLP'");
}

void scan(Context& context, const ScanOptions& options)
{
    Controller& controller = context.controller();
    startScan(context, controller, options);
    StreamReport report;
    awaitTables(controller, report, options.wait);
    const bool listed = report.services.has_value();
    if (!options.noPids || (!listed && !report.network.has_value()))
        collectPrograms(controller, report);
    if (!listed && !report.network.has_value() && report.programs.empty())
        throwNothingFound(controller, options);
    rememberServices(context, report);
    if (context.json())
        return context.print(jsonOf(report));
    printReport(context.out(), report);
    remarkOnWhatIsMissing(context, report, options);
}

void info(Context& context)
{
    Controller& controller = context.controller();
    if (controller.playerStatus().empty())
        throw Failure(
            ExitCode::Nothing, "no source has been selected", "run: tessaryctl scan, or tessaryctl play");
    StreamReport report;
    report.services = servicesNow(controller);
    report.network = networkNow(controller);
    rememberServices(context, report);
    if (auto program = programNow(controller))
        report.programs.push_back(*std::move(program));
    if (context.json())
        return context.print(jsonOf(report));
    printReport(context.out(), report);
    if (report.programs.empty())
        context.note("PIDs are known of the program that is played: tessaryctl play NUMBER");
}

/// " (PID 64 (0x40), PLP 102)", for T2-MI.
std::string t2miText(const StreamServer& server)
{
    return carriesT2mi(server)
        ? " (PID " + pidText(server.t2miPid) + ", PLP " + std::to_string(server.t2miPlpId) + ")"
        : "";
}

struct ServerOptions
{
    std::vector<std::string> server;
    std::vector<std::string> left; ///< groups
    int vlan = 0;
};

void leaveGroups(Context& context, const ServerOptions& options)
{
    for (const std::string& group : options.left)
        leaveGroup(context, group, options.vlan != 0 ? std::optional(options.vlan) : std::nullopt);
    if (context.json())
        context.print({{"left", options.left}});
    else
        context.out() << "the instrument was told to leave " << options.left.size()
                      << (options.left.size() == 1 ? " group" : " groups") << std::endl;
}

void setServer(Context& context, const std::vector<std::string>& words)
{
    if (words.empty()) {
        context.controller().ask(request::getServer);
        throw Failure(ExitCode::Nothing, "the instrument keeps its stream server to itself",
            "set it: tessaryctl server udp://239.0.0.1:1234");
    }
    const StreamServer server = parseServer(words);
    Controller& controller = context.controller();
    const bool known = context.memory().server().has_value();
    changeServer(context, controller, server);
    if (context.json())
        context.print({{"server", serverUrl(server)}, {"command", "server=" + server.text()}});
    else
        context.out() << "stream server " << serverUrl(server) << t2miText(server)
                      << "; taken by the next scan, play or measurement" << std::endl;
    if (!known && isGroup(server.address))
        context.note(
            "remark: groups of earlier stream servers stay joined until the link goes down; to leave "
            "one: tessaryctl server --leave GROUP");
}

} // namespace

void addServer(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "server", "Set the stream server");
    auto options = std::make_shared<ServerOptions>();
    auto* server = sub->add_option("server", options->server,
        "udp://ADDRESS:PORT, rtp://..., udp+t2mi://ADDRESS:PORT?pid=PID&plp=PLP, or the same in words: "
        "udp ADDRESS PORT");
    server->expected(0, 5);
    auto* left = sub->add_option("--leave", options->left,
        "have the instrument leave this multicast group, which it joined for an earlier server");
    left->type_name("GROUP")->excludes(server);
    sub->add_option("--vlan", options->vlan, "the VLAN that the group was joined on")
        ->needs(left)
        ->check(between(1, 4094));
    sub->callback([&context, options] {
        if (options->left.empty())
            setServer(context, options->server);
        else
            leaveGroups(context, *options);
    });
}

void addScan(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "scan", "Find what is in the stream: services, PIDs, network");
    auto options = std::make_shared<ScanOptions>();
    sub->add_option("server", options->server, "stream server to set first, as with tessaryctl server")
        ->expected(0, 5);
    sub->add_option("--source", options->source, "ip, fpga (front end) or recording (memory card)")
        ->check(CLI::IsMember({"ip", "fpga", "recording"}))
        ->capture_default_str();
    sub->add_option("--wait", options->wait, "seconds to wait for the tables")
        ->check(between(0.0, 3600.0))
        ->capture_default_str();
    sub->add_flag("--no-pids", options->noPids,
        "leave the programs' PIDs out: to get them, each program is played for a moment");
    sub->callback([&context, options] { scan(context, *options); });
}

void addInfo(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(
        app, context, "info", "Tell what is known of the current stream, without disturbing it");
    sub->callback([&context] { info(context); });
}

void addSendTs(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "send-ts", "Send the current stream to the FPGA");
    sub->callback([&context] {
        Controller& controller = context.controller();
        controller.sendStream();
        const std::string status = controller.playerStatus();
        if (context.json())
            context.print({{"status", status}});
        else
            context.out() << status << ": the stream goes to the FPGA" << std::endl;
    });
}

} // namespace tessary::ctl
