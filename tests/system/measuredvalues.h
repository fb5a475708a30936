#pragma once

#include "client/serialline.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessary::test {

/// The answer to "getethernetmes?".
struct MeasuredValues
{
    std::int32_t present = -1; ///< 1 while a stream comes in
    std::int32_t bitRate = -1; ///< bits per second of whole frames, last period
    std::int32_t delayFactorMs = -1; ///< last period
    std::int32_t continuityErrors = -1; ///< last period
    std::int32_t packetSize = -1; ///< bytes, last datagram
    std::int32_t packetsPerDatagram = -1; ///< last datagram
    std::int32_t constant = -1;
};

/// Asks "getethernetmes?"; nothing when the answer is "not connected\n".
std::optional<MeasuredValues> askMeasurement(client::SerialLine& line);

/// Asks "getiat?": inter-arrival times in µs, oldest first.
std::vector<std::int64_t> askInterArrivalTimes(client::SerialLine& line);

/// Asks "interface?": the answer with its line feed.
std::string askInterface(client::SerialLine& line);

} // namespace tessary::test
