#include "app/commandtable.h"

#include "workerfixture.h"

#include <gtest/gtest.h>

namespace {

// The controller's commands in matching order.
const char* const words[] = {"interface?", "interface=", "server?", "server=", "scancur", "streaminfo?",
    "videostatus?", "getnit?", "getpmt?", "play=", "getiat?", "getethernetmes?", "ping", "version?", "update",
    "sendts", "t2miframe?", "ipstatus?", "!07_S_&", "!0C_D_IX:", "!0C_L_IX:", "!07_A_&", "!07_E_&",
    "!16_O_AX:", "!07_V_&", "PVR_record", "PVR_stop", "PVR_scan", "PVR_reclist", "PVR_export", "START_DAB",
    "STOP_DAB", "dab", "command:"};

class CommandTable : public StartedWorker
{
};

} // namespace

TEST(Compare, IsZeroExactlyForAPrefixByCase)
{
    EXPECT_EQ(COMPARE("ping -c 1", "ping"), 0);
    EXPECT_EQ(COMPARE("ping", "ping"), 0);
    EXPECT_NE(COMPARE("pin", "ping"), 0);
    EXPECT_NE(COMPARE("Ping", "ping"), 0);
    EXPECT_NE(COMPARE("", "ping"), 0);
    EXPECT_EQ(COMPARE("anything", ""), 0);
}

TEST_F(CommandTable, RowsAreMatchedInTheirOrder)
{
    const CommandRow* last = nullptr;
    for (const char* word : words) {
        const CommandRow* row = findCommand(word, worker());
        if (std::string(word) == "STOP_DAB" || std::string(word) == "dab") {
            EXPECT_EQ(row, nullptr) << word << " holds in DAB mode only";
            continue;
        }
        ASSERT_NE(row, nullptr) << word;
        EXPECT_STREQ(row->word, word);
        EXPECT_GT(row, last) << word;
        last = row;
    }
}

TEST_F(CommandTable, QueriesAndSettingsAreToldApartByTheirLastCharacter)
{
    EXPECT_STREQ(findCommand("interface?", worker())->word, "interface?");
    EXPECT_STREQ(findCommand("interface=dhcp", worker())->word, "interface=");
    EXPECT_EQ(findCommand("interface", worker()), nullptr);
    EXPECT_STREQ(findCommand("server?", worker())->word, "server?");
    EXPECT_STREQ(findCommand("server=UDP", worker())->word, "server=");
    EXPECT_EQ(findCommand("server", worker()), nullptr);
}

TEST_F(CommandTable, AnyTextThatBeginsWithAWordMatches)
{
    EXPECT_STREQ(findCommand("pingpong", worker())->word, "ping");
    EXPECT_STREQ(findCommand("scancurrent\n", worker())->word, "scancur");
    EXPECT_EQ(findCommand("xping", worker()), nullptr);
    EXPECT_EQ(findCommand("", worker()), nullptr);
}

TEST_F(CommandTable, DabRowsHoldOnlyWhileTheModeIsRight)
{
    EXPECT_NE(findCommand("START_DAB\n", worker()), nullptr);
    EXPECT_EQ(findCommand("STOP_DAB\n", worker()), nullptr);
    EXPECT_EQ(findCommand("dab tune 5A", worker()), nullptr);
}
