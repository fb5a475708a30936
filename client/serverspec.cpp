#include "client/serverspec.h"

#include "client/usageerror.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <charconv>
#include <regex>

namespace tessary::client {

namespace {

using Protocol = StreamServer::Protocol;

constexpr int largestPid = 0x1FFE; // 0x1FFF are null packets

[[noreturn]] void refuse(const std::string& what)
{
    throw UsageError(what,
        "write udp://239.0.0.1:1234 or rtp://239.0.0.1:1234; with T2-MI "
        "'udp+t2mi://239.0.0.1:1234?pid=4096&plp=0'");
}

int number(const std::string& text, const char* what, int least, int most)
{
    int value = 0;
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* const begin = text.data() + (hexadecimal ? 2 : 0);
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(begin, end, value, hexadecimal ? 16 : 10);
    if (error != std::errc() || next != end || value < least || value > most)
        refuse(std::string(what) + " \"" + text + "\" is no number from " + std::to_string(least) + " to "
            + std::to_string(most));
    return value;
}

Protocol protocolOf(std::string word)
{
    std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::tolower(c); });
    std::replace(word.begin(), word.end(), '_', '+');
    if (word == "udp")
        return Protocol::Udp;
    if (word == "rtp")
        return Protocol::Rtp;
    if (word == "udp+t2mi")
        return Protocol::UdpT2mi;
    if (word == "rtp+t2mi")
        return Protocol::RtpT2mi;
    refuse("protocol \"" + word + "\" is none of udp, rtp, udp+t2mi, rtp+t2mi");
}

/// Players write "@" in front of a group that they join; in front of that may stand the one sender that is
/// wanted.
std::string groupOf(const std::string& text)
{
    const std::size_t at = text.find('@');
    if (at == std::string::npos)
        return text;
    if (at != 0)
        refuse("\"" + text
            + "\" names a sender before the group, and the instrument takes a group from all "
              "senders");
    return text.substr(1);
}

/// A URL as words.
std::vector<std::string> wordsOf(const std::string& url)
{
    static const std::regex form(
        R"(([A-Za-z0-9+_]+)://([^:/?]+)(?::([0-9]+))?/?(?:\?pid=([0-9A-Za-z]+)&plp=([0-9A-Za-z]+))?)");
    std::smatch parts;
    if (!std::regex_match(url, parts, form))
        refuse("\"" + url + "\" is no stream server");
    if (!parts[3].matched)
        refuse("\"" + url + "\" has no port");
    std::vector<std::string> words{parts[1], parts[2], parts[3]};
    if (parts[4].matched)
        words.insert(words.end(), {parts[4], parts[5]});
    return words;
}

} // namespace

StreamServer parseServer(const std::vector<std::string>& given)
{
    const bool isUrl = given.size() == 1 && given.front().find("://") != std::string::npos;
    const std::vector<std::string> words = isUrl ? wordsOf(given.front()) : given;
    if (words.size() != 3 && words.size() != 5)
        refuse("a stream server has protocol, address and port, and for T2-MI also PID and PLP");
    StreamServer server;
    server.protocol = protocolOf(words[0]);
    server.address = groupOf(words[1]);
    in_addr address{};
    if (::inet_pton(AF_INET, server.address.c_str(), &address) != 1)
        refuse("\"" + server.address + "\" is no IPv4 address");
    server.port = static_cast<std::uint16_t>(number(words[2], "port", 1, 65535));
    if (carriesT2mi(server) != (words.size() == 5))
        refuse(
            words.size() == 5 ? "PID and PLP go with udp+t2mi and rtp+t2mi only" : "T2-MI needs PID and PLP");
    if (carriesT2mi(server)) {
        server.t2miPid = static_cast<std::uint16_t>(number(words[3], "PID", 0, largestPid));
        server.t2miPlpId = static_cast<std::uint8_t>(number(words[4], "PLP", 0, 255));
    }
    return server;
}

bool carriesT2mi(const StreamServer& server)
{
    return server.protocol == Protocol::UdpT2mi || server.protocol == Protocol::RtpT2mi;
}

std::string serverUrl(const StreamServer& server)
{
    const bool rtp = server.protocol == Protocol::Rtp || server.protocol == Protocol::RtpT2mi;
    const bool t2mi = carriesT2mi(server);
    std::string url = std::string(rtp ? "rtp" : "udp") + (t2mi ? "+t2mi" : "") + "://" + server.address + ":"
        + std::to_string(server.port);
    if (t2mi)
        url += "?pid=" + std::to_string(server.t2miPid) + "&plp=" + std::to_string(server.t2miPlpId);
    return url;
}

} // namespace tessary::client
