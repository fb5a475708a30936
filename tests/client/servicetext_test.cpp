#include "client/psi/servicetext.h"

#include "client/psi/bytes.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::client;

constexpr std::uint16_t europe = 0x2001;
constexpr std::uint16_t japan = 0x7FE0;

std::string decoded(const Bytes& text, std::uint16_t network = europe)
{
    return servicesText(text.data(), text.size(), network);
}

Bytes join(const Bytes& head, const std::string& tail)
{
    Bytes all = head;
    for (const char c : tail)
        all.push_back(static_cast<std::uint8_t>(c));
    return all;
}

TEST(ServicesText, LeavesControlCodesOut)
{
    EXPECT_EQ(decoded(join({0x86}, "Rai\x87 1")), "Rai 1"); // emphasis on and off
    EXPECT_EQ(decoded(join({0x05, 0x86}, "Rai\x87")), "Rai");
    EXPECT_EQ(decoded(join({0x87},
                  "Rai\x8A"
                  "1")),
        "Rai 1"); // a new line
    EXPECT_EQ(decoded(join({0x15, 0xC2, 0x86}, "Rai")), "Rai");
    EXPECT_EQ(decoded({0x11, 0xE0, 0x86, 0x00, 'R', 0xE0, 0x87, 0x83, 0xEF}), "R華");
    EXPECT_EQ(decoded({}), "");
    EXPECT_EQ(decoded({0x86, 0x87}), "");
}

// Codes that no table of annex A begins with: what follows is readable all the same.
TEST(ServicesText, ReadsWhatFollowsStrayCodes)
{
    EXPECT_EQ(decoded(join({0x0E}, "Globo S\xE3o Paulo")), "Globo São Paulo");
    EXPECT_EQ(decoded(join({0x0F, 0x1B}, "Net")), "Net");
    EXPECT_EQ(decoded(join({0x00}, "Net")), "Net");
    EXPECT_EQ(decoded(join({0x19}, "Net")), "Net");
}

TEST(ServicesText, ReadsJapaneseCharacterCode)
{
    // Expected values: the characters' places in JIS X 0208.
    EXPECT_EQ(decoded(join({0x0E}, "NHK\x0F\x41\x6D\x39\x67"), japan), "NHK総合");
    EXPECT_EQ(decoded({0x46, 0x7C, 0x4B, 0x5C}, japan), "日本");
    EXPECT_EQ(decoded({0xC6, 0xEC, 0xD3}, japan), "てれび"); // hiragana on the right from the start
    EXPECT_EQ(decoded({0x1B, 0x7C, 0xC6, 0xEC, 0xD3, 0xF9}, japan), "テレビー"); // LS3R
    EXPECT_EQ(decoded({0x1D, 0x46, 0x46, 0x7C}, japan), "テ日"); // SS3 for one character
    EXPECT_EQ(decoded({0x89, 0x1B, 0x28, 0x4A, 'T', 'V', 0x20, 0x8A, 0x1B, 0x24, 0x42, 0x46, 0x7C}, japan),
        "TV 日");
    EXPECT_EQ(decoded({0x1B, 0x24, 0x3B, 0x7A, 0x50}, japan), "\uFFFD"); // an additional symbol
    EXPECT_EQ(decoded({0x46}, japan), "\uFFFD"); // breaks off
    EXPECT_EQ(decoded({0x1B}, japan), "");
    EXPECT_EQ(decoded({0x9B, 0x31, 0x3B, 0x32, 0x20, 0x53, 0x46, 0x7C}, japan), "日"); // CSI
}

// Some conversions go on behind the text when its last character fails. What stands there must not show.
TEST(ServicesText, EndsWhereTheTextEnds)
{
    EXPECT_EQ(decoded({0x02, 0xFF}), "ÿ");
    EXPECT_EQ(decoded({0x02, 0xFF, 0xFF}), "ÿÿ");
    EXPECT_EQ(decoded({0x04, 0xD8}), "Ø");
    EXPECT_EQ(decoded({0x07, 0xFF}), "ÿ");
    const std::string longest = decoded(Bytes(255, 'x')); // a network's name has so many bytes at most
    EXPECT_EQ(longest, std::string(255, 'x'));
}

TEST(SameName, FoldsEveryScript)
{
    EXPECT_TRUE(sameName("Rai 1", "rai 1"));
    EXPECT_TRUE(sameName("Первый канал", "ПЕРВЫЙ КАНАЛ"));
    EXPECT_TRUE(sameName("ΣΚΑΪ ΝΈΑ", "σκαϊ νέα"));
    EXPECT_TRUE(sameName("CAFÉ", "café"));
    EXPECT_TRUE(sameName("Cafe\u0301", "café")); // composed and not
    EXPECT_TRUE(sameName("Straße", "STRASSE"));
    EXPECT_TRUE(sameName("BR Süd   ", "br süd"));
    EXPECT_FALSE(sameName("BR Süd", "BR Sud"));
    EXPECT_FALSE(sameName("Rai 1", "Rai 2"));
    EXPECT_TRUE(sameName("\xFF", "\xFF")); // no UTF-8: as it is
}

} // namespace
