// The virtual instrument's own: it shares nothing with the daemon and the controller that it tests.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessary::t2mi {

/// CRC-8 of DVB-T2 mode adaptation: polynomial 0xD5, start value 0 (ETSI EN 302 755, annex F).
std::uint8_t crc8(const std::uint8_t* data, std::size_t size);

/// CRC-32 of MPEG sections and of T2-MI packets: polynomial 0x04C11DB7, start value all ones, most
/// significant bit first (ETSI TS 102 773, annex A). Over a block together with its own CRC the result is 0.
std::uint32_t crc32(const std::uint8_t* data, std::size_t size);

} // namespace tessary::t2mi
