#include <algorithm>
#include <gtest/gtest.h>

#include "reed_solomon.h"
#include "rtp_header.h"
#include "test_packets.h"

namespace tessary::sender {
namespace {

using Header = std::array<std::uint8_t, 12>;

TEST(RtpHeader, CarriesPayloadType33AndTheGivenStart)
{
    RtpHeader rtp(0x01020304, 0xABCD, 0x11223344);
    Header header{};
    rtp.write(header.data(), 0);
    EXPECT_EQ(header, (Header{0x80, 33, 0xAB, 0xCD, 0x11, 0x22, 0x33, 0x44, 1, 2, 3, 4}));
}

TEST(RtpHeader, TheSequenceNumberWrapsAt16Bits)
{
    RtpHeader rtp(0, 0xFFFF, 0);
    Header header{};
    rtp.write(header.data(), 0);
    EXPECT_EQ(header[2] << 8 | header[3], 0xFFFF);
    rtp.write(header.data(), 0);
    EXPECT_EQ(header[2] << 8 | header[3], 0);
}

TEST(RtpHeader, TheTimestampCounts90KhzPeriodsAndWrapsAt32Bits)
{
    RtpHeader rtp(0, 0, 0xFFFFFFFF);
    Header header{};
    rtp.write(header.data(), 1'000'000'000);
    EXPECT_EQ((header[4] << 24 | header[5] << 16 | header[6] << 8 | header[7]), 90'000 - 1);
    rtp.write(header.data(), std::int64_t{86'400} * 1'000'000'000);
    const auto stamp = static_cast<std::uint32_t>(std::uint64_t{86'400} * 90'000 - 1);
    EXPECT_EQ(header[4], stamp >> 24);
    EXPECT_EQ(header[7], stamp & 0xFF);
}

/// Product in GF(256) by the schoolbook, apart from the tables under test.
unsigned product(unsigned a, unsigned b)
{
    unsigned result = 0;
    for (unsigned bit = 0; bit < 8; ++bit)
        result ^= (b >> bit & 1) != 0 ? a << bit : 0;
    for (unsigned bit = 15; bit >= 8; --bit)
        result ^= (result >> bit & 1) != 0 ? 0x11DU << (bit - 8) : 0;
    return result;
}

TEST(ReedSolomon, EveryCodeWordHasTheGeneratorsRoots)
{
    for (unsigned seed = 0; seed < 20; ++seed) {
        test::Bytes word(204);
        for (unsigned i = 0; i < 188; ++i)
            word[i] = static_cast<std::uint8_t>(i * i * 31 + seed * 57 + (i >> 3));
        reedSolomonParity(word.data(), word.data() + 188);
        unsigned root = 1;
        for (int i = 0; i < 16; ++i, root = product(root, 2)) {
            unsigned value = 0;
            for (const std::uint8_t byte : word)
                value = product(value, root) ^ byte;
            EXPECT_EQ(value, 0U) << "root " << i << " of word " << seed;
        }
    }
}

TEST(ReedSolomon, ParityOfNothingIsNothing)
{
    test::Bytes word(204, 0);
    std::fill(word.begin() + 188, word.end(), std::uint8_t{0xFF});
    reedSolomonParity(word.data(), word.data() + 188);
    EXPECT_EQ(word, test::Bytes(204, 0));
}

} // namespace
} // namespace tessary::sender
