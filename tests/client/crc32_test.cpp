#include "client/psi/crc32.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using tessary::client::crc32Mpeg;

namespace {

TEST(Crc32Mpeg, GivesThePublishedCheckValue)
{
    const std::string digits = "123456789";
    EXPECT_EQ(crc32Mpeg(reinterpret_cast<const std::uint8_t*>(digits.data()), digits.size()), 0x0376E6E7U);
}

TEST(Crc32Mpeg, IsTheStartValueOverNothing)
{
    EXPECT_EQ(crc32Mpeg(nullptr, 0), 0xFFFFFFFFU);
}

TEST(Crc32Mpeg, IsZeroOverASectionWithItsOwnCrc)
{
    // The usual PAT of one program 1 on PID 0x1000.
    const std::vector<std::uint8_t> pat{
        0x00, 0xb0, 0x0d, 0x00, 0x01, 0xc1, 0x00, 0x00, 0x00, 0x01, 0xf0, 0x00, 0x2a, 0xb1, 0x04, 0xb2};
    EXPECT_EQ(crc32Mpeg(pat.data(), pat.size()), 0U);
}

} // namespace
