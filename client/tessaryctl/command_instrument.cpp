// The instrument itself: version, status, interface, ping, command, raw.
#include "client/answererror.h"
#include "client/ipstatus.h"
#include "client/netmask.h"
#include "client/pingreport.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/jsonvalue.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/waiting.h"

#include <cctype>
#include <iostream>
#include <sstream>
#include <thread>

namespace tessary::ctl {

using namespace client;

namespace {

constexpr double slowCommand = 60; // seconds; network set-up and programs on the instrument take their time

std::string fpgaText(const VersionInfo& info)
{
    const std::string state = !info.fpgaConfigured.has_value() ? "state unknown"
        : *info.fpgaConfigured                                 ? "configured"
                                                               : "not configured";
    return printable(info.fpga) + ", " + state;
}

void version(Context& context)
{
    const VersionInfo info = parseVersion(context.controller().version());
    const bool started = context.memory().startsSeen() > 0;
    if (context.json()) {
        Json value = jsonOfVersion(info);
        value["started"] = started;
        return context.print(value);
    }
    if (started)
        context.note(
            "the instrument has started since the line was read last: it has its settings at the start");
    context.out() << tableOf({{"software", info.software}, {"FPGA", fpgaText(info)}}) << std::flush;
}

Json jsonOf(const std::optional<InterfaceAddress>& address)
{
    Json value{{"connected", address.has_value()}};
    value["address"] = address.has_value() ? Json(address->address) : Json();
    value["mask"] = address.has_value() ? Json(address->mask) : Json();
    return value;
}

std::string addressText(const std::optional<InterfaceAddress>& address)
{
    return address.has_value() ? address->address + " " + address->mask : "not connected";
}

void status(Context& context)
{
    Controller& controller = context.controller();
    const VersionInfo info = parseVersion(controller.version());
    const std::string player = controller.playerStatus();
    const auto address = controller.interfaceAddress();
    const std::uint64_t recorded = controller.recordingSize();
    if (context.json()) {
        Json value{{"version", jsonOfVersion(info)}};
        value["player"] = player.empty() ? Json() : Json(player);
        value["interface"] = jsonOf(address);
        value["recording_bytes"] = recorded;
        return context.print(value);
    }
    context.out() << tableOf({{"software", info.software}, {"FPGA", fpgaText(info)},
        {"player", player.empty() ? "no source selected" : player}, {"Ethernet", addressText(address)},
        {"recording", recorded == 0 ? "none" : byteCount(static_cast<double>(recorded))}})
                  << std::flush;
}

void showInterface(Context& context)
{
    const auto address = context.controller().interfaceAddress();
    if (!address.has_value())
        throw Failure(ExitCode::NoLink, "the instrument's Ethernet is not connected",
            "plug the cable in (virtual instrument: bench/instrument link up)");
    if (context.json())
        context.print(jsonOf(address));
    else
        context.out() << addressText(address) << std::endl;
}

Json jsonOf(const std::optional<IpStatus::Traffic>& traffic)
{
    if (!traffic.has_value())
        return {};
    return {{"packets", traffic->packets}, {"bytes", traffic->bytes}, {"errors", traffic->errors},
        {"dropped", traffic->dropped}, {"overruns", traffic->overruns}};
}

Json jsonOf(const IpStatus& status)
{
    return {{"address", orNull(status.address)}, {"mask", orNull(status.mask)},
        {"broadcast", orNull(status.broadcast)}, {"ipv6", status.ipv6}, {"mac", orNull(status.mac)},
        {"flags", status.flags}, {"mtu", orNull(status.mtu)}, {"received", jsonOf(status.received)},
        {"sent", jsonOf(status.sent)}, {"speed_mbps", orNull(status.speedMbps)},
        {"duplex", orNull(status.duplex)}, {"auto_negotiation", orNull(status.autoNegotiation)},
        {"port", orNull(status.port)}, {"link_detected", orNull(status.linkDetected)}};
}

void showIpStatus(Context& context)
{
    const std::string text = context.controller().ipStatus();
    if (text.empty())
        throw Failure(ExitCode::Nothing, "the instrument has nothing to tell of eth0",
            "does it have a wired interface?");
    if (context.json())
        return context.print(jsonOf(parseIpStatus(text)));
    context.out() << text << std::flush;
}

void setInterface(Context& context, InterfaceSettings settings)
{
    if (!settings.dhcp) {
        const InterfaceAddress given = parseAddressAndMask(settings.address, settings.mask);
        settings.address = given.address;
        settings.mask = given.mask;
        if (isMiscounted(settings.mask))
            context.note("remark: the instrument counts masks by whole octets; look at what tessaryctl "
                         "interface says");
    }
    if (!settings.ethtoolCommand.empty() && settings.ethtoolCommand.rfind("ethtool ", 0) != 0)
        throw Failure(ExitCode::Usage, "--ethtool takes a whole command",
            "such as \"ethtool -s eth0 speed 100 duplex full\"");
    Controller& controller = context.controller(slowCommand);
    controller.setInterface(settings);
    // An address by DHCP comes some seconds later.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    auto address = controller.interfaceAddress();
    while ((!address.has_value() || address->address.empty() || address->address == "0.0.0.0")
        && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(Milliseconds(300));
        address = controller.interfaceAddress();
    }
    if (context.json())
        return context.print(jsonOf(address));
    context.out() << addressText(address) << std::endl;
}

void addInterfaceSettings(CLI::App& app, Context& context, const char* name, const char* text, bool dhcp)
{
    auto settings = std::make_shared<InterfaceSettings>();
    auto vlan = std::make_shared<int>(0);
    settings->dhcp = dhcp;
    auto* sub = addSubcommand(app, context, name, text);
    if (!dhcp) {
        sub->add_option(
               "address", settings->address, "such as 192.168.1.20, or with the mask: 192.168.1.20/24")
            ->required();
        sub->add_option("mask", settings->mask, "such as 255.255.255.0, or /24");
    }
    sub->add_option("--vlan", *vlan, "use this VLAN; without it none is used")->check(between(1, 4094));
    sub->add_option("--ethtool", settings->ethtoolCommand, "run this ethtool command on the instrument first")
        ->type_name("COMMAND");
    sub->callback([&context, settings, vlan] {
        if (*vlan != 0)
            settings->vlan = *vlan;
        setInterface(context, *settings);
    });
}

Json jsonOf(const std::optional<PingReport::RoundTrip>& times)
{
    if (!times.has_value())
        return {};
    return {{"shortest", times->shortest}, {"mean", times->mean}, {"longest", times->longest},
        {"deviation", times->deviation}};
}

Json jsonOf(const std::string& host, const PingReport& report)
{
    Json replies = Json::array();
    for (const auto& reply : report.replies)
        replies.push_back({{"sequence", reply.sequence}, {"time_to_live", reply.timeToLive},
            {"round_trip_ms", reply.milliseconds}});
    return {{"host", host}, {"address", orNull(report.address)}, {"transmitted", report.transmitted},
        {"received", report.received}, {"round_trip_ms", jsonOf(report.roundTrip)}, {"replies", replies}};
}

void ping(Context& context, const std::string& host, int count)
{
    // The instrument does nothing else until its ping ends, and what it prints comes then.
    const InterruptGuard guard(2, "\nwaiting for the end of the instrument's ping; Ctrl-C again leaves it\n");
    const std::string text =
        context.controller(10.0 + 2 * count).ping("-c " + std::to_string(count) + " " + host);
    if (text.empty())
        throw Failure(ExitCode::Nothing, "ping on the instrument printed nothing",
            "does the host \"" + host + "\" exist?");
    if (!context.json())
        context.out() << text << std::flush;
    if (guard.interrupted())
        throw Failure(ExitCode::Interrupted, "the instrument's ping has ended, and the line is free",
            "fewer echo requests take less time: --count");
    const PingReport report = parsePing(text);
    if (report.received == 0)
        throw Failure(ExitCode::Nothing, host + " does not answer",
            "tessaryctl interface shows the instrument's address");
    if (context.json())
        context.print(jsonOf(host, report));
}

void runCommand(Context& context, const std::string& text)
{
    const auto start = std::chrono::steady_clock::now();
    context.controller(slowCommand).runCommand(text);
    const double seconds = secondsSince(start);
    if (context.json())
        return context.print(
            {{"command", text}, {"seconds", seconds}, {"status", Json()}, {"output", Json()}});
    context.out() << "ended after " << fixed(seconds, 1)
                  << " s; --output shows its output and exit status, too" << std::endl;
}

void runCommandWithOutput(Context& context, const std::string& text)
{
    const auto start = std::chrono::steady_clock::now();
    const CommandOutcome outcome = context.controller(slowCommand).runCommandShown(text);
    const Json told{{"command", text}, {"seconds", secondsSince(start)}, {"status", outcome.status},
        {"output", outcome.output}};
    if (!context.json())
        context.out() << outcome.output << std::flush;
    if (outcome.status != 0)
        throw Failure(ExitCode::CommandFailed,
            "the command ended with exit status " + std::to_string(outcome.status),
            outcome.status == 127 ? "the instrument does not know such a program"
                                  : "what it printed tells more",
            told);
    if (context.json())
        context.print(told);
}

/// Throws Failure when the line can not carry it.
void checkCommand(const std::string& text, bool output)
{
    constexpr std::size_t longest = 619; // with its word and the mark behind it the 640 bytes of a burst
    constexpr std::size_t longestWithOutput = 500; // what shows its output and status takes some, too
    if (text.size() > (output ? longestWithOutput : longest))
        throw Failure(ExitCode::Usage, "the command is too long for the line",
            "shorten it to " + std::to_string(output ? longestWithOutput : longest)
                + " bytes, or put a script on the instrument");
    if (text.find('\n') != std::string::npos)
        throw Failure(ExitCode::Usage, "a command is one line", "part it with semicolons");
}

/// Backslash escapes \n \r \t \0 \\ \xNN of a command typed on a shell.
std::string unescaped(const std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            result.push_back(text[i]);
            continue;
        }
        switch (const char c = text[++i]; c) {
        case 'n':
            result.push_back('\n');
            break;
        case 'r':
            result.push_back('\r');
            break;
        case 't':
            result.push_back('\t');
            break;
        case '0':
            result.push_back('\0');
            break;
        case 'x':
            result += fromHexText(text.substr(i + 1, 2));
            i += 2;
            break;
        default:
            result.push_back(c);
        }
    }
    return result;
}

struct RawOptions
{
    std::vector<std::string> words;
    bool hex = false; ///< the words are bytes in hexadecimal
    bool noLineFeed = false;
    bool dump = false;
    bool binary = false;
    double quiet = 0.5;
};

void raw(Context& context, const RawOptions& options)
{
    std::string bytes;
    for (const std::string& word : options.words)
        bytes += (bytes.empty() || options.hex ? "" : " ") + word;
    bytes = options.hex ? fromHexText(bytes) : unescaped(bytes);
    if (!options.hex && !options.noLineFeed)
        bytes.push_back('\n');
    SerialLine& line = context.line(2);
    line.discardInput();
    line.write(bytes, context.timeout(2));
    const std::string answer =
        line.readUntilSilence(context.timeout(2), Milliseconds(static_cast<long>(options.quiet * 1000)));
    if (context.json())
        return context.print({{"sent_hex", hexText(bytes)}, {"text", answer}, {"hex", hexText(answer)}});
    const bool text = answer.find_first_not_of("\t\n\r") == std::string::npos
        || std::all_of(answer.begin(), answer.end(), [](char c) {
               return std::isprint(static_cast<unsigned char>(c)) != 0 || c == '\n' || c == '\r' || c == '\t';
           });
    if (options.binary || (text && !options.dump))
        context.out() << answer << (options.binary || answer.empty() || answer.back() == '\n' ? "" : "\n")
                      << std::flush;
    else
        context.out() << hexDump(answer) << std::flush;
    if (answer.empty())
        context.note("no answer; many commands have none (docs/protocol.md)");
}

} // namespace

void addVersion(CLI::App& app, Context& context)
{
    addSubcommand(app, context, "version", "Tell software and FPGA version")->callback([&context] {
        version(context);
    });
}

void addStatus(CLI::App& app, Context& context)
{
    addSubcommand(app, context, "status", "Tell how the instrument is: version, player, Ethernet, recording")
        ->callback([&context] { status(context); });
}

void addInterface(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "interface", "Show or set the wired interface");
    addInterfaceSettings(*sub, context, "dhcp", "Get the address by DHCP", true);
    addInterfaceSettings(*sub, context, "static", "Set a fixed address", false);
    auto* details =
        addSubcommand(*sub, context, "status", "What ifconfig and ethtool on the instrument say of eth0");
    details->callback([&context] { showIpStatus(context); });
    sub->callback([&context, sub] {
        if (sub->get_subcommands().empty())
            showInterface(context);
    });
}

void addPing(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "ping", "Let the instrument ping a host");
    auto host = std::make_shared<std::string>();
    auto count = std::make_shared<int>(3);
    sub->add_option("host", *host, "address or name")->required();
    sub->add_option("-c,--count", *count, "echo requests")->check(between(1, 1000))->capture_default_str();
    sub->callback([&context, host, count] { ping(context, *host, *count); });
}

void addCommand(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "command", "Run a shell command on the instrument, as root");
    auto words = std::make_shared<std::vector<std::string>>();
    auto output = std::make_shared<bool>(false);
    sub->add_option("command", *words, "the command; put it in quotes, or after --")->required();
    sub->add_flag("-o,--output", *output,
        "show what it prints, and its exit status: the instrument's shell writes both to the serial line");
    sub->callback([&context, words, output] {
        std::string text;
        for (const std::string& word : *words)
            text += (text.empty() ? "" : " ") + word;
        checkCommand(text, *output);
        if (*output)
            runCommandWithOutput(context, text);
        else
            runCommand(context, text);
    });
}

void addRaw(CLI::App& app, Context& context)
{
    auto* sub =
        addSubcommand(app, context, "raw", "Send any text with a line feed, and show what comes back");
    auto options = std::make_shared<RawOptions>();
    sub->add_option("text", options->words, R"(what to send; \n \r \t \0 \\ \xNN stand for bytes)")
        ->required();
    sub->add_flag("--hex", options->hex, "the text is bytes in hexadecimal, and no line feed follows");
    sub->add_flag("--no-line-feed", options->noLineFeed, "send no line feed at the end");
    sub->add_flag("--dump", options->dump, "show the answer in hexadecimal, also when it is text");
    sub->add_flag("--binary", options->binary, "write the answer's bytes as they are");
    sub->add_option("--quiet", options->quiet, "seconds of silence that end the answer")
        ->check(between(0.01, 600.0))
        ->capture_default_str();
    sub->callback([&context, options] { raw(context, *options); });
}

} // namespace tessary::ctl
