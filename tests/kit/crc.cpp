#include "kit/crc.h"

namespace tessary::test {

std::uint32_t crc32Mpeg2(const Bytes& bytes)
{
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const std::uint8_t byte : bytes) {
        crc ^= std::uint32_t{byte} << 24U;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x80000000U) != 0 ? crc << 1U ^ 0x04C11DB7U : crc << 1U;
    }
    return crc;
}

Bytes withCrc32(Bytes bytes)
{
    append32(bytes, crc32Mpeg2(bytes));
    return bytes;
}

std::uint8_t crc8DvbT2(const Bytes& bytes)
{
    unsigned crc = 0;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x80U) != 0 ? (crc << 1U ^ 0xD5U) & 0xFFU : crc << 1U;
    }
    return lowByte(crc);
}

} // namespace tessary::test
