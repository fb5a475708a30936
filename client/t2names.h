#pragma once

#include <cstdint>
#include <string>

namespace tessary::client {

// Values that DVB-T2's own signalling (ETSI EN 302 755, 7.2) and the NIT's T2 delivery system descriptor
// (ETSI EN 300 468, 6.4.6.3) code alike. Empty for reserved codes.

/// GUARD_INTERVAL, for example "19/128".
std::string t2GuardInterval(std::uint64_t code);
/// The size of the FFT, of transmission_mode and of S2's first three bits: "16k".
std::string t2TransmissionMode(std::uint64_t code);

} // namespace tessary::client
