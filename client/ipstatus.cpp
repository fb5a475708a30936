#include "client/ipstatus.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <regex>
#include <sstream>

namespace tessary::client {

namespace {

// The patterns are bounded: the library matches recursively, and a line that is damaged may be of any length.

template <typename Number> std::optional<Number> numberOf(const std::optional<std::string>& digits)
{
    Number value = 0;
    if (!digits.has_value()
        || std::from_chars(digits->data(), digits->data() + digits->size(), value).ec != std::errc())
        return std::nullopt;
    return value;
}

/// What the first group of `pattern` matches.
std::optional<std::string> found(const std::string& text, const char* pattern)
{
    std::smatch parts;
    return std::regex_search(text, parts, std::regex(pattern)) ? std::optional(parts[1].str()) : std::nullopt;
}

std::vector<std::string> allFound(const std::string& text, const char* pattern)
{
    const std::regex form(pattern);
    std::vector<std::string> all;
    for (std::sregex_iterator at(text.begin(), text.end(), form); at != std::sregex_iterator(); ++at)
        all.push_back((*at)[1]);
    return all;
}

std::vector<std::string> splitAtCommas(const std::string& text)
{
    std::vector<std::string> words;
    std::istringstream in(text);
    for (std::string word; std::getline(in, word, ',');)
        words.push_back(word);
    return words;
}

/// `way` is "RX" or "TX".
std::optional<IpStatus::Traffic> trafficOf(const std::string& text, const std::string& way)
{
    const std::regex form(way + R"( packets (\d{1,20})\s{1,20}bytes (\d{1,20})[^\n]{0,40}\n\s{0,20})" + way
        + R"( errors (\d{1,20})\s{1,20}dropped (\d{1,20})\s{1,20}overruns (\d{1,20}))");
    std::smatch parts;
    if (!std::regex_search(text, parts, form))
        return std::nullopt;
    const auto number = [&](std::size_t i) { return numberOf<std::uint64_t>(parts[i].str()).value_or(0); };
    return IpStatus::Traffic{number(1), number(2), number(3), number(4), number(5)};
}

std::optional<bool> yesOrNo(const std::optional<std::string>& word, const char* yes)
{
    return word.has_value() ? std::optional(*word == yes) : std::nullopt;
}

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

} // namespace

IpStatus parseIpStatus(const std::string& text)
{
    IpStatus status;
    status.address = found(text, R"(\binet (\d{1,20}\.\d{1,20}\.\d{1,20}\.\d{1,20}))");
    status.mask = found(text, R"(\bnetmask (\d{1,20}\.\d{1,20}\.\d{1,20}\.\d{1,20}))");
    status.broadcast = found(text, R"(\bbroadcast (\d{1,20}\.\d{1,20}\.\d{1,20}\.\d{1,20}))");
    status.ipv6 = allFound(text, R"(\binet6 ([0-9a-fA-F:.]{2,45}))");
    status.mac = found(text, R"(\bether ([0-9a-fA-F:]{2,17}))");
    status.flags = splitAtCommas(found(text, R"(flags=\d{1,20}<([^>]{0,200})>)").value_or(""));
    status.mtu = numberOf<int>(found(text, R"(\bmtu (\d{1,20}))"));
    status.received = trafficOf(text, "RX");
    status.sent = trafficOf(text, "TX");
    status.speedMbps = numberOf<int>(found(text, R"(Speed: (\d{1,20})Mb/s)"));
    if (const auto duplex = found(text, R"(Duplex: (Full|Half))"))
        status.duplex = lowered(*duplex);
    status.autoNegotiation = yesOrNo(found(text, R"(Auto-negotiation: (on|off))"), "on");
    status.port = found(text, R"(\n\s{0,20}Port: ([^\n]{1,60}))");
    status.linkDetected = yesOrNo(found(text, R"(Link detected: (yes|no))"), "yes");
    return status;
}

} // namespace tessary::client
