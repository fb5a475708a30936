#include "client/serverspec.h"
#include "client/usageerror.h"

#include <gtest/gtest.h>

using namespace tessary::client;

namespace {

TEST(ServerSpec, TakesUrlsAndWords)
{
    EXPECT_EQ(parseServer({"udp://239.0.0.1:1234"}).text(), "UDP 239.0.0.1 1234");
    EXPECT_EQ(parseServer({"rtp://10.0.0.5:5004/"}).text(), "RTP 10.0.0.5 5004");
    EXPECT_EQ(parseServer({"UDP", "239.0.0.1", "1234"}).text(), "UDP 239.0.0.1 1234");
    EXPECT_EQ(
        parseServer({"udp+t2mi://239.0.0.1:1234?pid=4096&plp=1"}).text(), "UDP_T2MI 239.0.0.1 1234 4096 1");
    EXPECT_EQ(
        parseServer({"RTP_T2MI", "239.0.0.2", "5000", "4096", "0"}).text(), "RTP_T2MI 239.0.0.2 5000 4096 0");
}

TEST(ServerSpec, TakesHexadecimalPids)
{
    EXPECT_EQ(parseServer({"udp+t2mi://239.0.0.1:1234?pid=0x1000&plp=0x66"}).text(),
        "UDP_T2MI 239.0.0.1 1234 4096 102");
    EXPECT_EQ(
        parseServer({"udp+t2mi", "239.0.0.1", "1234", "0X40", "0"}).text(), "UDP_T2MI 239.0.0.1 1234 64 0");
    for (const char* pid : {"0x", "0x1FFF", "0xg", "40h", "0x-1"})
        EXPECT_THROW(parseServer({"udp+t2mi", "239.0.0.1", "1234", pid, "0"}), UsageError) << pid;
}

TEST(ServerSpec, TakesGroupsAsPlayersWriteThem)
{
    EXPECT_EQ(parseServer({"rtp://@239.0.0.1:5004"}).text(), "RTP 239.0.0.1 5004");
    EXPECT_EQ(parseServer({"udp", "@239.0.0.1", "1234"}).text(), "UDP 239.0.0.1 1234");
    EXPECT_THROW(parseServer({"rtp://@:5004"}), UsageError);
    try {
        parseServer({"rtp://10.0.0.1@239.0.0.1:5004"});
        FAIL();
    } catch (const UsageError& failure) {
        EXPECT_NE(std::string(failure.what()).find("from all senders"), std::string::npos);
    }
}

TEST(ServerSpec, GivesTheUrlBack)
{
    for (const char* url : {"udp://239.0.0.1:1234", "rtp+t2mi://239.0.0.2:5000?pid=4096&plp=0"})
        EXPECT_EQ(serverUrl(parseServer({url})), url);
}

TEST(ServerSpec, RefusesWhatTheInstrumentWouldTakeSilentlyAndNotUse)
{
    const std::vector<std::vector<std::string>> wrong{{"tcp://1.2.3.4:5"}, {"udp://1.2.3.4"},
        {"udp://1.2.3:5"}, {"udp://1.2.3.4:0"}, {"udp://1.2.3.4:65536"}, {"udp+t2mi://1.2.3.4:5"},
        {"udp://1.2.3.4:5?pid=1&plp=1"}, {"udp+t2mi", "1.2.3.4", "5", "8191", "0"},
        {"udp+t2mi", "1.2.3.4", "5", "1", "256"}, {"udp"}, {"udp", "1.2.3.4"}, {"udp", "1.2.3.4", "x"},
        {"udp://host:1234"}};
    for (const auto& words : wrong)
        EXPECT_THROW(parseServer(words), UsageError) << words.front();
}

} // namespace
