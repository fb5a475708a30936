#include "client/pingreport.h"

#include "client/answererror.h"

#include <regex>

namespace tessary::client {

namespace {

std::vector<PingReport::Reply> repliesOf(const std::string& text)
{
    static const std::regex form(R"(icmp_seq=(\d{1,9}) ttl=(\d{1,9}) time=([\d.]{1,20}) ms)");
    std::vector<PingReport::Reply> replies;
    for (std::sregex_iterator at(text.begin(), text.end(), form); at != std::sregex_iterator(); ++at)
        replies.push_back(
            {std::stoi((*at)[1]), std::stoi((*at)[2]), std::strtod((*at)[3].str().c_str(), nullptr)});
    return replies;
}

std::optional<PingReport::RoundTrip> roundTripOf(const std::string& text)
{
    static const std::regex form(R"(= ([\d.]{1,20})/([\d.]{1,20})/([\d.]{1,20})/([\d.]{1,20}) ms)");
    std::smatch parts;
    if (!std::regex_search(text, parts, form))
        return std::nullopt;
    const auto number = [&](std::size_t i) { return std::strtod(parts[i].str().c_str(), nullptr); };
    return PingReport::RoundTrip{number(1), number(2), number(3), number(4)};
}

} // namespace

PingReport parsePing(const std::string& text)
{
    static const std::regex statistics(R"((\d{1,9}) packets transmitted, (\d{1,9}) received)");
    static const std::regex address(R"(PING [^\n(]{0,260}\(([0-9a-fA-F.:]{2,45})\))");
    std::smatch parts;
    if (!std::regex_search(text, parts, statistics))
        throw AnswerError("no statistics of ping: \"" + text + "\"");
    PingReport report;
    report.transmitted = std::stoi(parts[1]);
    report.received = std::stoi(parts[2]);
    if (std::regex_search(text, parts, address))
        report.address = parts[1];
    report.replies = repliesOf(text);
    report.roundTrip = roundTripOf(text);
    return report;
}

} // namespace tessary::client
