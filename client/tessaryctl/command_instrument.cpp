// The instrument itself: version, status, interface, ping, command, raw.
#include "client/answererror.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/netmask.h"
#include "client/tessaryctl/terminal.h"

#include <cctype>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

namespace tessary::ctl {

using namespace client;

namespace {

constexpr double slowCommand = 60; // seconds; network set-up and programs on the instrument take their time

Json jsonOf(const std::string& line)
{
    const VersionInfo info = parseVersion(line);
    Json value{{"software", info.software}, {"fpga", info.fpga}};
    value["fpga_configured"] = info.fpgaConfigured.has_value() ? Json(*info.fpgaConfigured) : Json();
    value["line"] = line;
    return value;
}

std::string fpgaText(const VersionInfo& info)
{
    const std::string state = !info.fpgaConfigured.has_value() ? "state unknown"
        : *info.fpgaConfigured                                 ? "configured"
                                                               : "not configured";
    return printable(info.fpga) + ", " + state;
}

void version(Context& context)
{
    const std::string line = context.controller().version();
    if (context.json())
        return context.print(jsonOf(line));
    const VersionInfo info = parseVersion(line);
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
    const std::string line = controller.version();
    const std::string player = controller.playerStatus();
    const auto address = controller.interfaceAddress();
    const std::uint64_t recorded = controller.recordingSize();
    if (context.json()) {
        Json value{{"version", jsonOf(line)}};
        value["player"] = player.empty() ? Json() : Json(player);
        value["interface"] = jsonOf(address);
        value["recording_bytes"] = recorded;
        return context.print(value);
    }
    const VersionInfo info = parseVersion(line);
    context.out() << tableOf({{"software", info.software}, {"FPGA", fpgaText(info)},
        {"player", player.empty() ? "no source selected" : player}, {"Ethernet", addressText(address)},
        {"recording", recorded == 0 ? "none" : byteCount(static_cast<double>(recorded))}})
                  << std::flush;
}

void showInterface(Context& context)
{
    const auto address = context.controller().interfaceAddress();
    if (context.json())
        context.print(jsonOf(address));
    else if (address.has_value())
        context.out() << addressText(address) << std::endl;
    if (!address.has_value())
        throw Failure(ExitCode::NoLink, "the instrument's Ethernet is not connected",
            "plug the cable in (virtual instrument: bench/instrument link up)");
}

void showIpStatus(Context& context)
{
    const std::string text = context.controller().ipStatus();
    if (text.empty())
        throw Failure(ExitCode::Nothing, "the instrument has nothing to tell of eth0",
            "does it have a wired interface?");
    if (context.json())
        return context.print({{"text", text}});
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

void ping(Context& context, const std::string& host, int count)
{
    const std::string text =
        context.controller(10.0 + 2 * count).ping("-c " + std::to_string(count) + " " + host);
    if (text.empty())
        throw Failure(ExitCode::Nothing, "ping on the instrument printed nothing",
            "does the host \"" + host + "\" exist?");
    if (context.json())
        context.print({{"host", host}, {"text", text}});
    else
        context.out() << text << std::flush;
    if (text.find(" 0 received") != std::string::npos)
        throw Failure(ExitCode::Nothing, host + " does not answer",
            "tessaryctl interface shows the instrument's address");
}

void runCommand(Context& context, const std::string& text)
{
    const auto start = std::chrono::steady_clock::now();
    context.controller(slowCommand).runCommand(text);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (context.json())
        return context.print({{"command", text}, {"seconds", seconds}});
    context.out() << "ended after " << fixed(seconds, 1)
                  << " s; the instrument does not tell its status or output" << std::endl;
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
    sub->add_option("command", *words, "the command; put it in quotes, or after --")->required();
    sub->callback([&context, words] {
        std::string text;
        for (const std::string& word : *words)
            text += (text.empty() ? "" : " ") + word;
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
