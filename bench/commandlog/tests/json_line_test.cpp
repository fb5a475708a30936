// The command log's lines hold any bytes that a program can be called with, and stay JSON.
extern "C" {
#include "json_line.h"
}

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace {

std::string quoted(const std::string& text)
{
    json_line line = {};
    json_line_string(&line, text.c_str());
    std::string result(line.data, line.length);
    json_line_free(&line);
    return result;
}

TEST(JsonLine, PlainTextStandsAsItIs)
{
    EXPECT_EQ(quoted("nmcli con del 'x'"), R"("nmcli con del 'x'")");
}

TEST(JsonLine, QuoteAndBackslashAreEscaped)
{
    EXPECT_EQ(quoted(R"(a"b\c)"), R"("a\"b\\c")");
}

TEST(JsonLine, ControlCharactersAreEscaped)
{
    EXPECT_EQ(quoted("a\nb\x01\x7f"), R"("a\u000ab\u0001\u007f")");
}

TEST(JsonLine, WellFormedUtf8StandsAsItIs)
{
    const std::string text = "\xC3\xA9\xE2\x82\xAC\xED\x9F\xBF\xEE\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
    EXPECT_EQ(quoted(text), '"' + text + '"');
}

TEST(JsonLine, OtherBytesBecomeLoneSurrogates)
{
    EXPECT_EQ(quoted("\xFF\x80"), R"("\udcff\udc80")");
    EXPECT_EQ(quoted("\xC3"), R"("\udcc3")"); // cut short
    EXPECT_EQ(quoted("\xC0\xAF"), R"("\udcc0\udcaf")"); // longer than needed
    EXPECT_EQ(quoted("\xED\xA0\x80"), R"("\udced\udca0\udc80")"); // a surrogate
    EXPECT_EQ(quoted("\xF4\x90\x80\x80"), R"("\udcf4\udc90\udc80\udc80")"); // beyond U+10FFFF
}

TEST(JsonLine, LongTextsAreHeldWhole)
{
    const std::string text(200000, 'x');
    EXPECT_EQ(quoted(text), '"' + text + '"');
}

TEST(JsonLine, LinesAreAppended)
{
    const std::string path = testing::TempDir() + "json_line_test.log";
    std::ofstream(path).close();
    for (int number = 1; number <= 2; ++number) {
        json_line line = {};
        json_line_format(&line, "{\"n\": %d}", number);
        EXPECT_EQ(json_line_append_to(&line, path.c_str()), 0);
        json_line_free(&line);
    }
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "{\"n\": 1}\n{\"n\": 2}\n");
    std::remove(path.c_str());
}

TEST(JsonLine, MissingLogIsReportedAndNotMade)
{
    json_line line = {};
    json_line_raw(&line, "{}");
    EXPECT_EQ(json_line_append_to(&line, (testing::TempDir() + "no/such/log").c_str()), -1);
    json_line_free(&line);
}

} // namespace
