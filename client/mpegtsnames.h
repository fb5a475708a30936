#pragma once

#include <cstdint>
#include <string>

namespace tessary::client {

/// What a person calls a stream_type (ISO/IEC 13818-1, table 2-34), for example "H.264 video"; "type 0x.."
/// when unknown.
std::string streamTypeName(std::uint8_t streamType);

/// What a person calls a service_type (ETSI EN 300 468, table 87), for example "digital television".
std::string serviceTypeName(std::uint8_t serviceType);

} // namespace tessary::client
