#pragma once

#include "client/tessaryctl/context.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tessary::ctl {

/// Bytes that ifconfig's text says were received; nothing when it does not say.
std::optional<std::uint64_t> receivedBytes(const std::string& ifconfigText);

/// Whether so much more comes in than the stream that it is something else; both in bits per second. Small
/// differences are none: the two are not of quite the same time.
bool hasOtherTraffic(double received, double stream);

/// Says on standard error when it does; nothing when it is not known how much comes in.
void remarkOnOtherTraffic(const Context& context, std::optional<double> received, double stream);

/// How much the wired interface receives of anything, from construction on.
class PortLoad
{
public:
    explicit PortLoad(client::Controller& controller);

    /// Bits per second of whole frames; nothing when the instrument does not tell.
    std::optional<double> bitRate() const;

    std::chrono::steady_clock::time_point since() const { return m_since; }

private:
    client::Controller& m_controller;
    std::optional<std::uint64_t> m_before;
    std::chrono::steady_clock::time_point m_since;
};

/// Tells, beside a measurement that is read over and over, whether something comes in beside the stream. It
/// asks the instrument every few seconds, for the answer is long.
class PortWatch
{
public:
    explicit PortWatch(client::Controller& controller)
        : m_controller(controller)
    {
    }

    /// A reading of the stream: bits per second of whole frames, or nothing while there is no stream to
    /// compare with, which begins anew.
    void add(std::optional<double> stream);

    /// Bits per second of all that came in, as known last; nothing before, and without stream.
    std::optional<double> received() const { return m_received; }
    /// Bits per second of that beside the stream; nothing when it is too little to be something else.
    std::optional<double> beside() const;

private:
    void begin();

    client::Controller& m_controller;
    std::optional<PortLoad> m_load;
    double m_sum = 0; ///< of the stream's readings since m_load began
    std::size_t m_readings = 0;
    std::optional<double> m_received;
    double m_stream = 0; ///< mean of the readings of the same time
};

} // namespace tessary::ctl
