#pragma once

#include "client/psi/tables.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessary::client {

/// A CA_descriptor (ISO/IEC 13818-1, 2.6.16).
struct ConditionalAccess
{
    std::uint16_t systemId = 0; ///< CA_system_ID
    std::uint16_t pid = 0; ///< of its ECMs
};

/// What the PMT names for the program and for its streams, each once.
std::vector<ConditionalAccess> conditionalAccessOf(const ProgramMap& program);

/// Who has the CA_system_ID (ETSI TS 101 162), for example "Conax"; empty for one that is not in the list.
std::string conditionalAccessName(std::uint16_t systemId);

} // namespace tessary::client
