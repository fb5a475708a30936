#include "client/tessaryctl/context.h"
#include "client/tessaryctl/guess.h"
#include "client/tessaryctl/program.h"
#include "ownstatefolder.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace tessary::ctl;
using tessary::test::StateFolder;

namespace {

using Words = std::vector<std::string>;

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

TEST(Completion, OffersTheSourcesAndTheServerAndServicesOfLastTime)
{
    const StateFolder state;
    InstrumentMemory memory("/dev/ttyUSB7");
    memory.carriedOut("server=UDP 239.0.0.1 1234", true);
    memory.setServices({"Radio Uno", "Rai 1", "Rai 2"});
    EXPECT_EQ(completionsOf({"scan", "--source", ""}), (Words{"ip", "fpga", "recording"}));
    EXPECT_EQ(completionsOf({"-p", "/dev/ttyUSB7", "scan", "u"}), (Words{"udp://239.0.0.1:1234"}));
    EXPECT_EQ(completionsOf({"-p", "/dev/ttyUSB7", "measure", ""}), (Words{"udp://239.0.0.1:1234"}));
    EXPECT_EQ(completionsOf({"play", "--port", "/dev/ttyUSB7", "Rai"}), (Words{"Rai 1", "Rai 2"}));
    EXPECT_TRUE(completionsOf({"-p", "/dev/ttyUSB8", "play", ""}).empty());
    EXPECT_TRUE(completionsOf({"-p", "/dev/ttyUSB8", "scan", ""}).empty());
}

TEST(Guess, FindsTheNearestWord)
{
    Session session;
    Context context(session);
    const auto parser = makeParser(context);
    EXPECT_EQ(guessOf(*parser, {"vresion"}), "version");
    EXPECT_EQ(guessOf(*parser, {"mesure"}), "measure");
    EXPECT_EQ(guessOf(*parser, {"t2miframe"}), "t2mi-frame");
    EXPECT_EQ(guessOf(*parser, {"elephant"}), "");
    EXPECT_EQ(guessOf(*parser, {"--tiemout=3"}), "--timeout");
    const CLI::App& measure = *parser->get_subcommand("measure");
    EXPECT_EQ(guessOf(measure, {"3", "--cuont"}), "--count");
    EXPECT_EQ(guessOf(measure, {"--elephant"}), "");
}

} // namespace
