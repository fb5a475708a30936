#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/plot.h"
#include "client/tessaryctl/terminal.h"

#include <gtest/gtest.h>

using namespace tessary::ctl;

namespace {

class Terminal : public testing::Test
{
protected:
    void SetUp() override { useUtf8(); }
};

TEST_F(Terminal, CountsColumnsNotBytes)
{
    EXPECT_EQ(displayWidth("Rai 1"), 5U);
    EXPECT_EQ(displayWidth("Первый"), 6U);
    EXPECT_EQ(displayWidth("華視"), 4U);
    EXPECT_EQ(displayWidth("e\u0301"), 1U);
    EXPECT_EQ(displayWidth("\xFF"), 1U);
}

TEST_F(Terminal, ColumnsLineUpForEveryScript)
{
    EXPECT_EQ(tableOf({{"a", "b"}, {"華視", "c"}, {"Первый", "d"}}), "a       b\n華視    c\nПервый  d\n");
}

TEST_F(Terminal, LinesAreCutAtTheScreensEdge)
{
    EXPECT_EQ(cutToWidth("Первый канал\nab\n\n華視華視\n", 5), "Первы\nab\n\n華視");
    EXPECT_EQ(cutToWidth("12345\n", 5), "12345");
}

TEST_F(Terminal, TextOutOfAStreamCanNotSteerTheTerminal)
{
    EXPECT_EQ(printable("a\033[2Jb\n\xFF"), "a [2Jb \uFFFD");
}

TEST_F(Terminal, NumbersReadAsAPersonWritesThem)
{
    EXPECT_EQ(byteCount(999), "999 bytes");
    EXPECT_EQ(byteCount(1000), "1.00 kB");
    EXPECT_EQ(byteCount(11520), "11.5 kB");
    EXPECT_EQ(bitRateText(10319148), "10.3 Mbit/s");
    EXPECT_EQ(microsecondsText(1052.8), "1.05 ms");
    EXPECT_EQ(durationText(87), "1:27");
    EXPECT_EQ(durationText(3723), "1:02:03");
}

TEST_F(Terminal, HexadecimalGoesBothWays)
{
    EXPECT_EQ(fromHexText("64 61:62 0A"), "dab\n");
    EXPECT_EQ(hexText("dab\n"), "6461620a");
    EXPECT_THROW(fromHexText("6"), Failure);
    EXPECT_THROW(fromHexText("zz"), Failure);
    EXPECT_EQ(hexDump("A\n"), "000000  41 0a                                            A.\n");
}

TEST_F(Terminal, BarsShowTheSmallestShare)
{
    EXPECT_EQ(bar(0, 8), "");
    EXPECT_EQ(bar(0.0001, 8), "▏");
    EXPECT_EQ(bar(0.5, 8), "████");
    EXPECT_EQ(bar(2, 2), "██");
}

TEST_F(Terminal, AHistogramOfEqualTimesIsOneBar)
{
    const std::string text = textHistogram({1000, 1000, 1000}, 20, 80);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    EXPECT_NE(text.find("     3  "), std::string::npos) << text;
}

} // namespace
