#include "options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <getopt.h>
#include <optional>
#include <vector>

namespace tessary::sender {

namespace {

enum Option {
    BitRate = 1000,
    RateFromPcr,
    DatagramRate,
    Packets,
    PacketSize,
    Ttl,
    Interface,
    MulticastLoop,
    Flow,
    KeepVlan,
    Loop,
    NoRestamp,
    Duration,
    Count,
    StopFile,
    CcErrors,
    CcErrorsFrom,
    CcErrorsFor,
    Json,
    Help
};

const option longOptions[] = {
    {"bitrate", required_argument, nullptr, BitRate},
    {"rate-from-pcr", no_argument, nullptr, RateFromPcr},
    {"datagram-rate", required_argument, nullptr, DatagramRate},
    {"packets", required_argument, nullptr, Packets},
    {"packet-size", required_argument, nullptr, PacketSize},
    {"ttl", required_argument, nullptr, Ttl},
    {"interface", required_argument, nullptr, Interface},
    {"multicast-loop", no_argument, nullptr, MulticastLoop},
    {"flow", required_argument, nullptr, Flow},
    {"keep-vlan", no_argument, nullptr, KeepVlan},
    {"loop", optional_argument, nullptr, Loop},
    {"no-restamp", no_argument, nullptr, NoRestamp},
    {"duration", required_argument, nullptr, Duration},
    {"count", required_argument, nullptr, Count},
    {"stop-file", required_argument, nullptr, StopFile},
    {"cc-errors-per-second", required_argument, nullptr, CcErrors},
    {"cc-errors-from", required_argument, nullptr, CcErrorsFrom},
    {"cc-errors-for", required_argument, nullptr, CcErrorsFor},
    {"json", no_argument, nullptr, Json},
    {"help", no_argument, nullptr, Help},
    {nullptr, 0, nullptr, 0},
};

std::uint64_t parseNumber(
    const std::string& text, const std::string& what, std::uint64_t least, std::uint64_t most)
{
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    const bool digitsOnly = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digitsOnly || errno != 0 || value < least || value > most)
        throw UsageError(what + ": '" + text + "' is no whole number from " + std::to_string(least) + " to "
            + std::to_string(most));
    return value;
}

void parseTarget(const std::string& text, Options& options)
{
    const std::string scheme = text.substr(0, 6);
    const std::size_t colon = text.rfind(':');
    if ((scheme != "udp://" && scheme != "rtp://") || colon == std::string::npos || colon <= 6)
        throw UsageError("'" + text + "' is no target; write udp://HOST:PORT or rtp://HOST:PORT");
    options.rtp = scheme == "rtp://";
    options.host = text.substr(6, colon - 6);
    options.port = static_cast<std::uint16_t>(parseNumber(text.substr(colon + 1), "port", 1, 65535));
}

std::int64_t parseDuration(const std::string& text, const char* what)
{
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !std::isfinite(seconds) || seconds <= 0 || seconds > 1e8)
        throw UsageError(what + std::string(": '") + text + "' is no number of seconds above 0");
    return std::llround(seconds * 1e9);
}

constexpr std::uint64_t Unlimited = UINT64_MAX;

/// Options of what is sent where; false when `which` is none of them.
bool applyDatagramOption(int which, const std::string& value, Options& options)
{
    switch (which) {
    case BitRate:
        options.bitRate = parseRate(value, "--bitrate");
        return true;
    case DatagramRate:
        options.datagramRate = parseRate(value, "--datagram-rate");
        return true;
    case Packets:
        options.packetsPerDatagram = parseNumber(value, "--packets", 1, 348);
        options.packetsAreSet = true;
        return true;
    case PacketSize:
        if (value != "188" && value != "204")
            throw UsageError("--packet-size: '" + value + "' is not supported; give 188 or 204");
        options.packetSize = value == "188" ? 188 : 204;
        return true;
    case Ttl:
        options.ttl = static_cast<int>(parseNumber(value, "--ttl", 1, 255));
        return true;
    case Interface:
        options.interface = value;
        return true;
    case MulticastLoop:
        options.multicastLoop = true;
        return true;
    case Flow:
        options.flow = value;
        return true;
    case KeepVlan:
        options.keepVlan = true;
        return true;
    default:
        return false;
    }
}

void applyRunOption(int which, const std::optional<std::string>& value, Options& options)
{
    switch (which) {
    case Loop:
        options.passes = value ? parseNumber(*value, "--loop", 1, Unlimited) : 0;
        break;
    case NoRestamp:
        options.restamp = false;
        break;
    case Duration:
        options.durationNs = parseDuration(*value, "--duration");
        break;
    case Count:
        options.datagramLimit = parseNumber(*value, "--count", 1, Unlimited);
        break;
    case StopFile:
        options.stopFile = *value;
        break;
    case CcErrors:
        options.errorsPerSecond =
            static_cast<unsigned>(parseNumber(*value, "--cc-errors-per-second", 0, 10000));
        break;
    case CcErrorsFrom:
        options.errorsFromNs = parseDuration(*value, "--cc-errors-from");
        break;
    case CcErrorsFor:
        options.errorsForNs = parseDuration(*value, "--cc-errors-for");
        break;
    case Json:
        options.json = true;
        break;
    case Help:
        options.help = true;
        break;
    default: // --rate-from-pcr: what holds without a rate
        break;
    }
}

void checkTogether(const Options& options, bool fromPcr)
{
    if ((options.bitRate > 0 ? 1 : 0) + (options.datagramRate > 0 ? 1 : 0) + (fromPcr ? 1 : 0) > 1)
        throw UsageError("give only one of --bitrate, --datagram-rate and --rate-from-pcr");
    if (options.errorsPerSecond > 0 && !options.restamp)
        throw UsageError(
            "--cc-errors-per-second changes counters, --no-restamp forbids it; leave one of them out");
    const std::size_t largest =
        (options.packetSize == 0 ? 188 : options.packetSize) * options.packetsPerDatagram;
    if (largest + 12 > 65507)
        throw UsageError(
            "--packets: " + std::to_string(largest) + " bytes do not fit a datagram; give fewer packets");
}

} // namespace

void checkForCapture(const Options& options, bool isCapture)
{
    if (!isCapture && (!options.flow.empty() || options.keepVlan))
        throw UsageError(options.file + ": no capture; --flow and --keep-vlan are for pcap and pcapng files");
    const bool changes = options.bitRate > 0 || options.datagramRate > 0 || options.packetsAreSet
        || options.packetSize != 0 || options.errorsPerSecond > 0;
    if (isCapture && changes)
        throw UsageError(options.file
            + ": a capture is sent as it was; leave out --bitrate, --datagram-rate, --packets, --packet-size "
              "and --cc-errors-per-second");
}

double parseRate(const std::string& text, const std::string& what)
{
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    const std::string suffix = end;
    if (suffix == "k")
        value *= 1e3;
    else if (suffix == "M")
        value *= 1e6;
    else if (suffix == "G")
        value *= 1e9;
    const bool known = suffix.empty() || suffix == "k" || suffix == "M" || suffix == "G";
    if (text.empty() || !known || !std::isfinite(value) || value <= 0 || value > 1e11)
        throw UsageError(what + ": '" + text
            + "' is no rate; give a number above 0 with k, M or G behind it, for example 5M");
    return value;
}

Options parseOptions(int argc, const char* const* argv)
{
    Options options;
    bool fromPcr = false;
    std::vector<std::string> plain;
    optind = 0; // start afresh: glibc keeps its place between calls
    opterr = 0;
    // getopt only reorders the array it gets, so that one is ours.
    std::vector<char*> arguments;
    arguments.reserve(static_cast<std::size_t>(argc) + 1);
    for (int i = 0; i < argc; ++i)
        arguments.push_back(const_cast<char*>(argv[i]));
    arguments.push_back(nullptr);
    for (int which = 0; (which = ::getopt_long(argc, arguments.data(), ":", longOptions, nullptr)) != -1;) {
        if (which == '?' || which == ':')
            throw UsageError(std::string(arguments[static_cast<std::size_t>(optind - 1)])
                + (which == '?' ? ": unknown option" : ": needs a value") + "; see --help");
        fromPcr = fromPcr || which == RateFromPcr;
        const auto value = optarg != nullptr ? std::optional<std::string>(optarg) : std::nullopt;
        if (!applyDatagramOption(which, value.value_or(""), options))
            applyRunOption(which, value, options);
    }
    for (int i = optind; i < argc; ++i)
        plain.emplace_back(arguments[static_cast<std::size_t>(i)]);
    if (options.help)
        return options;
    if (plain.size() != 2)
        throw UsageError(
            "give a file and one target, for example: tessary-send demo.ts udp://239.0.0.1:1234");
    options.file = plain[0];
    parseTarget(plain[1], options);
    checkTogether(options, fromPcr);
    return options;
}

} // namespace tessary::sender
