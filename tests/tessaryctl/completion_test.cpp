#include "client/tessaryctl/program.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace tessary::ctl;

namespace {

bool offers(const std::vector<std::string>& words, const std::string& word)
{
    const auto found = completionsOf(words);
    return std::find(found.begin(), found.end(), word) != found.end();
}

TEST(Completion, OffersSubcommandsByTheirBeginning)
{
    EXPECT_TRUE(offers({""}, "scan"));
    EXPECT_TRUE(offers({"sc"}, "scan"));
    EXPECT_FALSE(offers({"sc"}, "play"));
    EXPECT_TRUE(offers({"ebs", ""}, "status"));
    EXPECT_TRUE(offers({"interface", "d"}, "dhcp"));
}

TEST(Completion, OffersTheOptionsOfTheSubcommandThatStandsThere)
{
    EXPECT_TRUE(offers({"iat", "--p"}, "--png"));
    EXPECT_TRUE(offers({"iat", "--p"}, "--port"));
    EXPECT_FALSE(offers({"play", "--p"}, "--png"));
    EXPECT_TRUE(offers({"interface", "static", "--v"}, "--vlan"));
    EXPECT_FALSE(offers({"interface", "--v"}, "--vlan"));
}

} // namespace
