#pragma once

#include "client/psi/sections.h"

namespace tessary::client {

/// True when the section is a PAT, PMT, NIT or SDT section in which every loop and every descriptor ends
/// inside what holds it (ISO/IEC 13818-1, 2.4.4; ETSI EN 300 468, 5.2). The MPEG-TS library follows some of
/// these lengths beyond the section's end, so only sections that pass are given to it.
bool loopsFit(const Section& section);

} // namespace tessary::client
