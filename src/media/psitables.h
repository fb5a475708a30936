#pragma once

#include <cstdint>
#include <vector>

/// One received PMT section: its program number and the complete section, table_id to CRC_32 (ISO/IEC
/// 13818-1).
struct PMT_vector_Struct
{
    std::uint16_t program_number;
    std::vector<std::uint8_t> data;
};

/// One received NIT section: its section_number and the complete section, table_id to CRC_32 (ETSI EN 300
/// 468).
struct NIT_vector_Struct
{
    std::uint16_t section_number;
    std::vector<std::uint8_t> data;
};
