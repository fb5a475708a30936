#include "client/psi/sections.h"
#include "kit/sections.h"

#include <gtest/gtest.h>
#include <random>

using namespace tessary::client;
using namespace tessary::test;

namespace {

// What is fed                                     | sections | rest
// nothing                                         | 0        | -
// one PAT                                         | 1        | -
// SDT, SDT, NIT one after another                 | 3        | -
// PAT with one bit changed                        | 1, bad CRC | -
// PAT + 2 bytes                                   | 1        | 2
// PAT cut before its last byte                    | 0        | all
// text                                            | 0        | all
// PAT + section_syntax_indicator 0                | 1        | from there on
// length below 9 / above 4093                     | 0        | all

Bytes patBytes()
{
    return makeSection(0x00, 1, {0x00, 0x01, 0xF0, 0x00});
}

TEST(SplitSections, GivesNothingForNothing)
{
    const SplitResult result = splitSections({});
    EXPECT_TRUE(result.sections.empty());
    EXPECT_TRUE(result.whole());
    EXPECT_EQ(result.problem, "");
}

TEST(SplitSections, CutsAChainByTheSectionsOwnLengths)
{
    const Bytes longer = makeSection(0x42, 7, Bytes(300, 0xAA));
    const Bytes shorter = makeSection(0x42, 7, Bytes(20, 0xBB), {1, 1});
    const Bytes nit = makeSection(0x40, 9, {0xF0, 0x00, 0xF0, 0x00});
    const SplitResult result = splitSections(join({longer, shorter, nit}));
    ASSERT_EQ(result.sections.size(), 3U);
    EXPECT_EQ(result.sections[0].bytes, longer);
    EXPECT_EQ(result.sections[1].bytes, shorter);
    EXPECT_EQ(result.sections[1].sectionNumber(), 1);
    EXPECT_EQ(result.sections[2].tableId(), 0x40);
    EXPECT_EQ(result.sections[2].tableIdExtension(), 9);
    EXPECT_TRUE(result.whole());
}

TEST(SplitSections, KeepsASectionWithAWrongCrcAndSaysSo)
{
    Bytes damaged = patBytes();
    damaged[9] ^= 0x04U;
    const SplitResult result = splitSections(join({damaged, patBytes()}));
    ASSERT_EQ(result.sections.size(), 2U);
    EXPECT_FALSE(result.sections[0].crcCorrect);
    EXPECT_TRUE(result.sections[1].crcCorrect);
    EXPECT_FALSE(result.whole());
}

TEST(SplitSections, LeavesAHeaderThatIsCutShort)
{
    const SplitResult result = splitSections(join({patBytes(), {0x42, 0xF0}}));
    EXPECT_EQ(result.sections.size(), 1U);
    EXPECT_EQ(result.rest, (Bytes{0x42, 0xF0}));
    EXPECT_EQ(result.problem, "section header cut short at byte 16: 2 of 3 bytes");
    EXPECT_FALSE(result.whole());
}

TEST(SplitSections, LeavesASectionThatIsCutShort)
{
    Bytes cut = patBytes();
    cut.pop_back();
    const SplitResult result = splitSections(cut);
    EXPECT_TRUE(result.sections.empty());
    EXPECT_EQ(result.rest, cut);
    EXPECT_EQ(result.problem, "section cut short at byte 0: 15 of 16 bytes");
}

TEST(SplitSections, StopsAtTextAndAtTheShortForm)
{
    const SplitResult text = splitSections(toBytes("HELLO !\r\n"));
    EXPECT_TRUE(text.sections.empty());
    EXPECT_EQ(text.rest.size(), 9U);
    EXPECT_NE(text.problem.find("without section_syntax_indicator"), std::string::npos);

    const SplitResult shortForm = splitSections(join({patBytes(), {0x70, 0x70, 0x05, 1, 2, 3, 4, 5}}));
    EXPECT_EQ(shortForm.sections.size(), 1U);
    EXPECT_EQ(shortForm.rest.size(), 8U);
}

TEST(SplitSections, RefusesLengthsNoSectionCanHave)
{
    EXPECT_EQ(splitSections({0x00, 0xB0, 0x08, 1, 2, 3, 4, 5, 6, 7, 8}).problem,
        "no section at byte 0: 11 bytes, allowed are 12 to 4096");
    Bytes tooLong(4200, 0);
    tooLong[1] = 0xBF;
    tooLong[2] = 0xFE;
    EXPECT_EQ(splitSections(tooLong).problem, "no section at byte 0: 4097 bytes, allowed are 12 to 4096");
}

TEST(SplitSections, AccountsForEveryByteOfGarbage)
{
    std::mt19937 random(20260101);
    std::uniform_int_distribution<unsigned> byte(0, 255);
    std::uniform_int_distribution<std::size_t> size(0, 600);
    for (int round = 0; round < 2000; ++round) {
        Bytes chain = round % 2 == 0 ? Bytes() : patBytes();
        const std::size_t extra = size(random);
        for (std::size_t i = 0; i < extra; ++i)
            chain.push_back(static_cast<std::uint8_t>(byte(random)));
        const SplitResult result = splitSections(chain);
        Bytes together;
        for (const Section& section : result.sections)
            together.insert(together.end(), section.bytes.begin(), section.bytes.end());
        together.insert(together.end(), result.rest.begin(), result.rest.end());
        ASSERT_EQ(together, chain);
        ASSERT_EQ(result.rest.empty(), result.problem.empty());
    }
}

} // namespace
