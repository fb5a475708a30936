#include "ts_packet.h"

namespace tessary::sender::ts {

std::uint64_t pcr(const std::uint8_t* packet)
{
    const std::uint8_t* field = packet + 6;
    std::uint64_t base = 0;
    for (int i = 0; i < 4; ++i)
        base = (base << 8) | field[i];
    base = (base << 1) | (field[4] >> 7);
    const unsigned extension = ((field[4] & 1U) << 8) | field[5];
    return base * 300 + extension;
}

void setPcr(std::uint8_t* packet, std::uint64_t ticks)
{
    const std::uint64_t base = (ticks % PcrRange) / 300;
    const unsigned extension = static_cast<unsigned>(ticks % 300);
    std::uint8_t* field = packet + 6;
    for (int i = 0; i < 4; ++i)
        field[i] = static_cast<std::uint8_t>(base >> (25 - 8 * i));
    // The six reserved bits between base and extension are ones.
    field[4] = static_cast<std::uint8_t>(((base & 1U) << 7) | 0x7EU | (extension >> 8));
    field[5] = static_cast<std::uint8_t>(extension);
}

} // namespace tessary::sender::ts
