// The controller's own: it shares nothing with the daemon, whose update receiver compares this checksum.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessary::client {

/// CRC-32 of MPEG-2 systems (ISO/IEC 13818-1 annex A): polynomial 0x04C11DB7, start value 0xFFFFFFFF, most
/// significant bit first, no final inversion. Over a whole section with its CRC_32 field the result is 0.
std::uint32_t crc32Mpeg(const std::uint8_t* data, std::size_t size);

} // namespace tessary::client
