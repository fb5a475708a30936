#include "client/psi/languages.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::client;

TEST(LanguagesOf, ReadsSoundWithItsUse)
{
    EXPECT_EQ(textOf(languagesOf({{0x0A, {'i', 't', 'a', 0}}})), "ita");
    EXPECT_EQ(textOf(languagesOf({{0x52, {1}}, {0x0A, {'d', 'e', 'u', 0, 'e', 'n', 'g', 3}}})),
        "deu, eng (visual impaired commentary)");
    EXPECT_EQ(textOf(languagesOf({{0x7F, {0x06, 0x85, 'f', 'r', 'a'}}})), "fra (audio description)");
    EXPECT_EQ(textOf(languagesOf({{0x7F, {0x06, 0x84}}})), "");
}

// Descriptors of a recorded multiplex (ita and eng, page 777), and of ETSI EN 300 468, 6.2.41 and 6.2.43.
TEST(LanguagesOf, ReadsTeletextAndSubtitles)
{
    EXPECT_EQ(
        textOf(languagesOf({{0x56,
            {0x69, 0x74, 0x61, 0x09, 0x00, 0x69, 0x74, 0x61, 0x17, 0x77, 0x65, 0x6E, 0x67, 0x17, 0x78}}})),
        "ita (teletext page 100), ita (teletext subtitles page 777), eng (teletext subtitles page 778)");
    EXPECT_EQ(textOf(languagesOf({{0x56, {'d', 'e', 'u', 0x28, 0x88}}})),
        "deu (teletext subtitles for the hearing impaired page 888)");
    EXPECT_EQ(
        textOf(languagesOf({{0x59, {'d', 'e', 'u', 0x10, 0, 1, 0, 1, 's', 'w', 'e', 0x20, 0, 2, 0, 2}}})),
        "deu, swe (hearing impaired)");
    EXPECT_EQ(textOf(languagesOf({{0x7F, {0x20, 'd', 'e', 'u', 0}}})), "deu");
}

TEST(LanguagesOf, PassesOverWhatIsTooShort)
{
    EXPECT_TRUE(languagesOf({}).empty());
    for (const std::uint8_t tag : Bytes{0x0A, 0x46, 0x56, 0x59, 0x7F}) {
        EXPECT_TRUE(languagesOf({{tag, {}}}).empty());
        EXPECT_TRUE(languagesOf({{tag, {0x06, 0x01, 'd'}}}).empty());
    }
}

} // namespace
