#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tessary::client {

/// What ping on the instrument found out.
struct PingReport
{
    struct Reply
    {
        int sequence = 0; ///< icmp_seq, from 1
        int timeToLive = 0; ///< hops left
        double milliseconds = 0; ///< round trip
    };
    struct RoundTrip
    {
        double shortest = 0; ///< milliseconds, as the other three
        double mean = 0;
        double longest = 0;
        double deviation = 0;
    };

    std::optional<std::string> address; ///< that the host's name stands for
    int transmitted = 0;
    int received = 0;
    std::vector<Reply> replies;
    std::optional<RoundTrip> roundTrip; ///< nothing without replies
};

/// Takes what iputils' ping prints apart. Throws AnswerError for a text without its statistics.
PingReport parsePing(const std::string& text);

} // namespace tessary::client
