#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessary::client {

/// What ifconfig and ethtool on the instrument say of eth0. A field is nothing where they do not say it.
struct IpStatus
{
    struct Traffic
    {
        std::uint64_t packets = 0;
        std::uint64_t bytes = 0;
        std::uint64_t errors = 0;
        std::uint64_t dropped = 0;
        std::uint64_t overruns = 0;
    };

    std::optional<std::string> address; ///< IPv4, dotted decimal
    std::optional<std::string> mask;
    std::optional<std::string> broadcast;
    std::vector<std::string> ipv6; ///< addresses, without prefix length
    std::optional<std::string> mac; ///< "52:54:00:..."
    std::vector<std::string> flags; ///< "UP", "RUNNING", ...
    std::optional<int> mtu; ///< bytes
    std::optional<Traffic> received;
    std::optional<Traffic> sent;
    std::optional<int> speedMbps; ///< nothing also when the link is down
    std::optional<std::string> duplex; ///< "full", "half"
    std::optional<bool> autoNegotiation;
    std::optional<std::string> port; ///< "Twisted Pair", "MII", ...
    std::optional<bool> linkDetected;
};

/// Takes the answer to "ipstatus?" apart (net-tools' ifconfig, then ethtool from "Speed" on).
IpStatus parseIpStatus(const std::string& text);

} // namespace tessary::client
