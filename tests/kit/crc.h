// The tests' own checksums, bit by bit from the standards: no part of the product is tested with its own.
#pragma once

#include "kit/bytes.h"

namespace tessary::test {

/// CRC-32/MPEG-2 (ISO/IEC 13818-1 annex A; ETSI TS 102 773 annex A): polynomial 0x04C11DB7, start value all
/// ones, most significant bit first. Over bytes that end with their own CRC it is 0.
std::uint32_t crc32Mpeg2(const Bytes& bytes);

/// The bytes with their CRC-32/MPEG-2 behind them.
Bytes withCrc32(Bytes bytes);

/// CRC-8 of DVB-T2 mode adaptation (ETSI EN 302 755 annex F): polynomial 0xD5, start value 0.
std::uint8_t crc8DvbT2(const Bytes& bytes);

} // namespace tessary::test
