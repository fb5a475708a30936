#include "client/psi/crc32.h"

#include <array>

namespace tessary::client {

namespace {

constexpr std::uint32_t polynomial = 0x04C11DB7U;

constexpr std::array<std::uint32_t, 256> makeTable()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t value = 0; value < table.size(); ++value) {
        std::uint32_t remainder = value << 24U;
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder << 1U) ^ ((remainder & 0x80000000U) != 0 ? polynomial : 0U);
        table[value] = remainder;
    }
    return table;
}

constexpr auto remainders = makeTable();

} // namespace

std::uint32_t crc32Mpeg(const std::uint8_t* data, std::size_t size)
{
    std::uint32_t remainder = 0xFFFFFFFFU;
    for (std::size_t i = 0; i < size; ++i)
        remainder = (remainder << 8U) ^ remainders[(remainder >> 24U) ^ data[i]];
    return remainder;
}

} // namespace tessary::client
