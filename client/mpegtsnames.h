#pragma once

#include "client/tables.h"

#include <cstdint>
#include <string>

namespace tessary::client {

/// What a person calls a stream_type (ISO/IEC 13818-1, table 2-34), for example "H.264 video"; "type 0x.."
/// when unknown.
std::string streamTypeName(std::uint8_t streamType);

/// The same for a stream of a PMT: private PES is told apart by its descriptors (ETSI EN 300 468, 6.1 and
/// annex D), for example "AC-3 audio", "teletext", "subtitles".
std::string streamName(const ProgramMap::Stream& stream);

/// What a person calls a service_type (ETSI EN 300 468, table 87), for example "digital television".
std::string serviceTypeName(std::uint8_t serviceType);

/// running_status (ETSI EN 300 468, table 6), for example "running"; "undefined" for 0.
std::string runningStatusName(std::uint8_t runningStatus);

} // namespace tessary::client
