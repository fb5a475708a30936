#include "client/tessaryctl/memory.h"
#include "ownstatefolder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

using namespace tessary::ctl;
using tessary::test::StateFolder;
using Source = InstrumentMemory::Source;

namespace {

constexpr const char* port = "/dev/ttyUSB0";

class Memory : public testing::Test
{
protected:
    std::filesystem::path file() const { return m_state.file("instruments.json"); }

    static std::string serverAfter(const char* command, bool surely = true)
    {
        InstrumentMemory memory(port);
        memory.carriedOut(command, surely);
        return memory.server().has_value() ? memory.server()->url : "";
    }

    static Source sourceAfter(const char* command, bool surely = true)
    {
        InstrumentMemory memory(port);
        memory.carriedOut(command, surely);
        return memory.source();
    }

private:
    const StateFolder m_state;
};

TEST_F(Memory, KnowsNothingOfAPortThatWasNotUsed)
{
    const InstrumentMemory memory(port);
    EXPECT_FALSE(memory.server().has_value());
    EXPECT_EQ(memory.source(), Source::Unknown);
    EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(Memory, TheServerIsThatOfTheLastRunOnTheSamePort)
{
    EXPECT_EQ(
        serverAfter("server=RTP_T2MI 239.0.0.2 5000 4096 0"), "rtp+t2mi://239.0.0.2:5000?pid=4096&plp=0");
    EXPECT_EQ(InstrumentMemory(port).server()->url, "rtp+t2mi://239.0.0.2:5000?pid=4096&plp=0");
    EXPECT_FALSE(InstrumentMemory("/dev/ttyUSB1").server().has_value());
}

TEST_F(Memory, AServerOfWhichItIsNotSureIsForgotten)
{
    EXPECT_EQ(serverAfter("server=UDP 239.0.0.1 1234"), "udp://239.0.0.1:1234");
    EXPECT_EQ(serverAfter("scancur"), "udp://239.0.0.1:1234");
    EXPECT_EQ(serverAfter("server=UDP 239.0.0.2 1234", false), "");
    EXPECT_EQ(serverAfter("server=UDP 239.0.0.1 1234"), "udp://239.0.0.1:1234");
    EXPECT_EQ(serverAfter("server=hello"), "");
    EXPECT_FALSE(InstrumentMemory(port).server().has_value());
}

TEST_F(Memory, FollowsTheSource)
{
    EXPECT_EQ(sourceAfter("play=2"), Source::Unknown) << "it keeps the source that there is";
    EXPECT_EQ(sourceAfter("PVR_scan"), Source::Recording);
    EXPECT_EQ(sourceAfter("play=2"), Source::Recording);
    EXPECT_EQ(sourceAfter("getpmt?"), Source::Recording);
    EXPECT_EQ(sourceAfter("scancur"), Source::Ip);
    EXPECT_EQ(sourceAfter("!07_S_&"), Source::Fpga);
    EXPECT_EQ(sourceAfter("PVR_stop"), Source::None);
    EXPECT_EQ(sourceAfter("PVR_record"), Source::Fpga);
    EXPECT_EQ(sourceAfter("PVR_stop"), Source::None);
    EXPECT_EQ(sourceAfter("play=2"), Source::Ip);
    EXPECT_EQ(sourceAfter("PVR_scan", false), Source::Unknown);
}

TEST_F(Memory, AStartThatIsSeenPutsEverythingBack)
{
    EXPECT_EQ(serverAfter("server=UDP 239.0.0.9 999"), "udp://239.0.0.9:999");
    EXPECT_EQ(sourceAfter("PVR_scan"), Source::Recording);
    InstrumentMemory memory(port);
    EXPECT_EQ(memory.startsSeen(), 0);
    memory.greeted();
    EXPECT_EQ(memory.startsSeen(), 1);
    EXPECT_EQ(memory.server()->url, "udp://239.0.0.1:1234");
    EXPECT_EQ(InstrumentMemory(port).source(), Source::None);
}

TEST_F(Memory, TheFileCanBeRead)
{
    EXPECT_EQ(sourceAfter("PVR_scan"), Source::Recording);
    std::ifstream in(file());
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    EXPECT_NE(text.find("\"source\": \"recording\""), std::string::npos) << text;
}

TEST_F(Memory, AFileOfAnythingElseIsNoObstacle)
{
    std::filesystem::create_directories(file().parent_path());
    for (const char* text :
        {"no json", "[]", "{\"/dev/ttyUSB0\": 7}", "{\"/dev/ttyUSB0\": {\"server\": 7}}"}) {
        std::ofstream(file()) << text;
        EXPECT_FALSE(InstrumentMemory(port).server().has_value()) << text;
        EXPECT_EQ(serverAfter("server=UDP 239.0.0.1 1234"), "udp://239.0.0.1:1234") << text;
        EXPECT_TRUE(InstrumentMemory(port).server().has_value()) << text;
    }
}

} // namespace
