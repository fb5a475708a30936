#pragma once

#include <cstdint>

/// Entries of the most-significant-bit-first table of the polynomial 0x04C11DB7.
extern const std::uint32_t crc32Table[256];

/// CRC-32/MPEG-2 (the CRC_32 of ISO/IEC 13818-1 annex A): initial value 0xFFFFFFFF, no reflection, no final
/// inversion. Only reads; 0xFFFFFFFF for no bytes. (The parameter names avoid the settings record's.)
unsigned FAPI_SYS_CalculateCrc32(const unsigned char* bytes, unsigned length, const unsigned* table);
