// Programs run without a shell: words, the two texts, and what is no program.
#include "system/program.h"

#include "support/privatemachine.h"

#include <gtest/gtest.h>

namespace {

using Calls = std::vector<std::string>;

TEST(Programs, TheTwoTextsAreToldApart)
{
    RecordedPrograms programs;
    programs.add("ethtool", "Speed: 100Mb/s\n", "netlink error\n", 75); // the status does not matter
    const ProgramTexts texts = runProgram("ethtool eth0");
    EXPECT_EQ(texts.output, "Speed: 100Mb/s\n");
    EXPECT_EQ(texts.errors, "netlink error\n");
}

TEST(Programs, WordsAreSeparatedByBlanksAndLineEndsAndKeptTogetherByQuotes)
{
    RecordedPrograms programs;
    programs.add("ethtool");
    runProgram("  ethtool -s\t\"eth0 x\"  $HOME;* \r\n");
    EXPECT_EQ(programs.calls(), Calls{"ethtool|-s|eth0 x|$HOME;*"});
}

TEST(Programs, ATextEndsAtItsFirstNulByte)
{
    RecordedPrograms programs;
    programs.addScript("ethtool", R"(printf 'a\0b'; printf 'c\0d' >&2)");
    const ProgramTexts texts = runProgram("ethtool");
    EXPECT_EQ(texts.output, "a");
    EXPECT_EQ(texts.errors, "c");
}

TEST(Programs, MoreThanAPipeHoldsComesWhole)
{
    RecordedPrograms programs;
    programs.addScript(
        "ethtool", "i=0; while [ $i -lt 20000 ]; do echo \"line $i\"; i=$((i+1)); done; echo end >&2");
    const ProgramTexts texts = runProgram("ethtool");
    EXPECT_EQ(texts.output.size(), 10U * 7 + 90 * 8 + 900 * 9 + 9000 * 10 + 10000 * 11);
    EXPECT_EQ(texts.errors, "end\n");
}

TEST(Programs, ALineWithoutAProgramHasNoTexts)
{
    RecordedPrograms programs;
    for (const char* line : {"", " ", "\r\n", "\"\"", "absent -x"}) {
        const ProgramTexts texts = runProgram(line);
        EXPECT_EQ(texts.output + texts.errors, "") << line;
    }
    EXPECT_EQ(programs.calls(), Calls{});
}

} // namespace
