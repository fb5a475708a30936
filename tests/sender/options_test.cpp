#include <gtest/gtest.h>
#include <vector>

#include "options.h"

namespace tessary::sender {
namespace {

Options parse(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "tessary-send");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, DefaultsSendOncePlainPacketsAtTheFilesRate)
{
    const Options options = parse({"a.ts", "udp://239.0.0.1:1234"});
    EXPECT_EQ(options.file, "a.ts");
    EXPECT_EQ(options.host, "239.0.0.1");
    EXPECT_EQ(options.port, 1234);
    EXPECT_FALSE(options.rtp);
    EXPECT_EQ(options.bitRate, 0);
    EXPECT_EQ(options.packetsPerDatagram, 7U);
    EXPECT_EQ(options.packetSize, 0U);
    EXPECT_EQ(options.ttl, 4);
    EXPECT_EQ(options.passes, 1U);
    EXPECT_FALSE(options.multicastLoop);
}

TEST(Options, AllCanBeGiven)
{
    const Options options = parse({"--bitrate=1.5M", "--packets", "1", "--packet-size", "204", "--ttl", "16",
        "--interface", "eth9", "a.ts", "rtp://10.0.0.5:5004", "--loop=3", "--duration", "2.5", "--count", "9",
        "--stop-file", "/s", "--cc-errors-per-second", "12", "--cc-errors-from", "3", "--cc-errors-for=1.5",
        "--json", "--multicast-loop"});
    EXPECT_TRUE(options.rtp);
    EXPECT_EQ(options.bitRate, 1'500'000);
    EXPECT_EQ(options.packetsPerDatagram, 1U);
    EXPECT_EQ(options.packetSize, 204U);
    EXPECT_EQ(options.ttl, 16);
    EXPECT_EQ(options.interface, "eth9");
    EXPECT_EQ(options.passes, 3U);
    EXPECT_EQ(options.durationNs, 2'500'000'000);
    EXPECT_EQ(options.datagramLimit, 9U);
    EXPECT_EQ(options.stopFile, "/s");
    EXPECT_EQ(options.errorsPerSecond, 12U);
    EXPECT_EQ(options.errorsFromNs, 3'000'000'000);
    EXPECT_EQ(options.errorsForNs, 1'500'000'000);
    EXPECT_TRUE(options.json);
    EXPECT_TRUE(options.multicastLoop);
}

TEST(Options, OfACaptureLeaveItAsItWas)
{
    const auto refuses = [](std::vector<const char*> more, bool isCapture) {
        more.insert(more.begin(), {"a", "udp://h:1"});
        try {
            checkForCapture(parse(std::move(more)), isCapture);
        } catch (const UsageError&) {
            return true;
        }
        return false;
    };
    EXPECT_FALSE(refuses({"--flow", "239.0.0.1:1", "--keep-vlan", "--loop=2", "--count", "3"}, true));
    EXPECT_FALSE(refuses({"--bitrate", "1M", "--packets", "7"}, false));
    for (const auto& changes :
        std::vector<std::vector<const char*>>{{"--bitrate", "1M"}, {"--datagram-rate", "5"},
            {"--packets", "7"}, {"--packet-size", "188"}, {"--cc-errors-per-second", "1"}})
        EXPECT_TRUE(refuses(changes, true)) << changes.front();
    EXPECT_TRUE(refuses({"--flow", "239.0.0.1:1"}, false));
    EXPECT_TRUE(refuses({"--keep-vlan"}, false));
}

TEST(Options, LoopWithoutNumberNeverEnds)
{
    EXPECT_EQ(parse({"a.ts", "udp://h:1", "--loop"}).passes, 0U);
}

TEST(Options, RatesHaveDecimalSuffixes)
{
    EXPECT_EQ(parseRate("5M", "x"), 5e6);
    EXPECT_EQ(parseRate("800k", "x"), 8e5);
    EXPECT_EQ(parseRate("0.2G", "x"), 2e8);
    EXPECT_EQ(parseRate("1234567", "x"), 1234567);
    for (const char* wrong : {"", "M", "5m", "5 M", "-1M", "0", "nan", "inf", "5MM", "1e30"})
        EXPECT_THROW(parseRate(wrong, "x"), UsageError) << wrong;
}

TEST(Options, WrongArgumentsAreNamed)
{
    const std::vector<std::pair<std::vector<const char*>, const char*>> cases{
        {{}, "give a file"},
        {{"a.ts"}, "give a file"},
        {{"a.ts", "b.ts", "udp://h:1"}, "give a file"},
        {{"a.ts", "tcp://h:1"}, "tcp://h:1"},
        {{"a.ts", "udp://h"}, "udp://h"},
        {{"a.ts", "udp://:1"}, "udp://:1"},
        {{"a.ts", "udp://h:0"}, "port"},
        {{"a.ts", "udp://h:65536"}, "port"},
        {{"a.ts", "udp://h:12x"}, "port"},
        {{"a.ts", "udp://h:1", "--frobnicate"}, "--frobnicate"},
        {{"a.ts", "udp://h:1", "--ttl"}, "--ttl"},
        {{"a.ts", "udp://h:1", "--ttl", "256"}, "--ttl"},
        {{"a.ts", "udp://h:1", "--packets", "0"}, "--packets"},
        {{"a.ts", "udp://h:1", "--packets", "330", "--packet-size", "204"}, "--packets"},
        {{"a.ts", "udp://h:1", "--packet-size", "192"}, "--packet-size"},
        {{"a.ts", "udp://h:1", "--duration", "0"}, "--duration"},
        {{"a.ts", "udp://h:1", "--loop=0"}, "--loop"},
        {{"a.ts", "udp://h:1", "--count", "-1"}, "--count"},
        {{"a.ts", "udp://h:1", "--bitrate", "1M", "--datagram-rate", "5"}, "only one"},
        {{"a.ts", "udp://h:1", "--bitrate", "1M", "--rate-from-pcr"}, "only one"},
        {{"a.ts", "udp://h:1", "--cc-errors-per-second", "1", "--no-restamp"}, "--no-restamp"},
    };
    for (const auto& [arguments, named] : cases) {
        try {
            parse(arguments);
            ADD_FAILURE() << "taken; wanted a complaint about " << named;
        } catch (const UsageError& error) {
            EXPECT_NE(std::string(error.what()).find(named), std::string::npos) << error.what();
        }
    }
}

TEST(Options, HelpNeedsNoFile)
{
    EXPECT_TRUE(parse({"--help"}).help);
    for (const char* option : {"--bitrate", "--rate-from-pcr", "--datagram-rate", "--packets",
             "--packet-size", "--ttl", "--interface", "--multicast-loop", "--loop", "--no-restamp",
             "--duration", "--count", "--stop-file", "--cc-errors-per-second", "--json"})
        EXPECT_NE(helpText().find(option), std::string::npos) << option;
}

} // namespace
} // namespace tessary::sender
