#pragma once

#include "client/controller.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tessary::ctl {

/// Bytes that ifconfig's text says were received; nothing when it does not say.
std::optional<std::uint64_t> receivedBytes(const std::string& ifconfigText);

/// Whether so much more comes in than the stream that it is something else; both in bits per second. Small
/// differences are none: the two are not of quite the same time.
bool hasOtherTraffic(double received, double stream);

/// How much the wired interface receives of anything, from construction on.
class PortLoad
{
public:
    explicit PortLoad(client::Controller& controller);

    /// Bits per second of whole frames; nothing when the instrument does not tell.
    std::optional<double> bitRate() const;

private:
    client::Controller& m_controller;
    std::optional<std::uint64_t> m_before;
    std::chrono::steady_clock::time_point m_since;
};

} // namespace tessary::ctl
