#include "commands/crc32.h"

#include "kit/crc.h"

#include <gtest/gtest.h>
#include <string>

namespace {

unsigned crcOf(const std::string& text)
{
    return FAPI_SYS_CalculateCrc32(
        reinterpret_cast<const unsigned char*>(text.data()), static_cast<unsigned>(text.size()), crc32Table);
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
        EXPECT_EQ(crcOf(text), tessary::test::crc32Mpeg2({text.begin(), text.end()})) << value;
    }
}

TEST(Crc32, ASectionWithItsOwnCrcGivesZero)
{
    // The usual PAT of one program, recorded.
    EXPECT_EQ(crcOf({"\x00\xB0\x0D\x00\x01\xC1\x00\x00\x00\x01\xF0\x00\x2A\xB1\x04\xB2", 16}), 0u);
}
