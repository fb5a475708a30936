#include "crc.h"

#include <array>

namespace tessary::t2mi {
namespace {

std::array<std::uint8_t, 256> makeCrc8Table()
{
    std::array<std::uint8_t, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        unsigned crc = i;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x80U) != 0 ? (crc << 1) ^ 0xD5U : crc << 1;
        table[i] = static_cast<std::uint8_t>(crc & 0xFFU);
    }
    return table;
}

std::array<std::uint32_t, 256> makeCrc32Table()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t crc = i << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x80000000U) != 0 ? (crc << 1) ^ 0x04C11DB7U : crc << 1;
        table[i] = crc;
    }
    return table;
}

} // namespace

std::uint8_t crc8(const std::uint8_t* data, std::size_t size)
{
    static const auto table = makeCrc8Table();
    std::uint8_t crc = 0;
    for (std::size_t i = 0; i < size; ++i)
        crc = table[crc ^ data[i]];
    return crc;
}

std::uint32_t crc32(const std::uint8_t* data, std::size_t size)
{
    static const auto table = makeCrc32Table();
    std::uint32_t crc = 0xFFFFFFFFU;
    for (std::size_t i = 0; i < size; ++i)
        crc = (crc << 8) ^ table[(crc >> 24) ^ data[i]];
    return crc;
}

} // namespace tessary::t2mi
