#pragma once

#include <cstdint>
#include <string>

namespace tessary::client {

/// What a person calls a service_type (ETSI EN 300 468, table 87), for example "digital television".
std::string serviceTypeName(std::uint8_t serviceType);

/// True for the service_types that are sound without picture.
bool isRadio(std::uint8_t serviceType);

/// running_status (ETSI EN 300 468, table 6), for example "running"; "undefined" for 0.
std::string runningStatusName(std::uint8_t runningStatus);

/// What a descriptor_tag stands for (ISO/IEC 13818-1, table 2-45; ETSI EN 300 468, table 12), for example
/// "language"; "descriptor" for those not in the list.
std::string descriptorName(std::uint8_t tag);

} // namespace tessary::client
