#include "commands/crc32.h"

#include <gtest/gtest.h>
#include <string>

namespace {

unsigned crcOf(const std::string& text)
{
    return FAPI_SYS_CalculateCrc32(
        reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()), crc32Table);
}

/// The same checksum bit by bit, without a table.
unsigned bitwiseCrc(const std::string& text)
{
    unsigned crc = 0xFFFFFFFF;
    for (const char c : text) {
        crc ^= static_cast<unsigned>(static_cast<unsigned char>(c)) << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 0x80000000 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
    }
    return crc;
}

} // namespace

TEST(Crc32, CheckValueOfTheNineDigits)
{
    EXPECT_EQ(crcOf("123456789"), 0x0376E6E7u);
}

TEST(Crc32, NoBytesGiveTheInitialValue)
{
    EXPECT_EQ(crcOf(""), 0xFFFFFFFFu);
    EXPECT_EQ(FAPI_SYS_CalculateCrc32(nullptr, 0, crc32Table), 0xFFFFFFFFu);
}

TEST(Crc32, TableIsThatOfThePolynomial)
{
    EXPECT_EQ(crc32Table[0], 0u);
    EXPECT_EQ(crc32Table[1], 0x04C11DB7u);
    EXPECT_EQ(crc32Table[255], 0xB1F740B4u);
}

TEST(Crc32, EveryByteValueFollowsThePolynomial)
{
    for (int value = 0; value < 256; ++value) {
        const std::string text = {static_cast<char>(value), 'x'};
        EXPECT_EQ(crcOf(text), bitwiseCrc(text)) << value;
    }
}

TEST(Crc32, ASectionWithItsOwnCrcGivesZero)
{
    // A PAT section of one program, with the CRC_32 that ISO/IEC 13818-1 puts at its end.
    std::string section("\x00\xB0\x0D\x00\x01\xC1\x00\x00\x00\x01\xE1\x00", 12);
    const unsigned crc = crcOf(section);
    for (int shift = 24; shift >= 0; shift -= 8)
        section += static_cast<char>(crc >> shift & 0xFF);
    EXPECT_EQ(crcOf(section), 0u);
}
