#include "workerfixture.h"

#include "burststopwatch.h"
#include "commands/uart_command.h"
#include "link/serialport.h"
#include "support/eventually.h"
#include "support/privatenetwork.h"
#include "support/steps.h"
#include "system/mydata.h"
#include "system/network.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <QCoreApplication>
#include <random>
#include <thread>

using namespace std::string_literals;
using Calls = std::vector<std::string>;

namespace {

class Dispatcher : public StartedWorker
{
protected:
    void SetUp() override
    {
        StartedWorker::SetUp();
        if (IsSkipped())
            return;
        programs().add("ping", "pong");
        programs().forget();
        controller().readUntilQuiet(30); // the greeting
        log().forget();
    }

    /// How often a handler's entry line was logged.
    int entries(const std::string& line)
    {
        const std::vector<std::string> lines = log().lines();
        return static_cast<int>(std::count(lines.begin(), lines.end(), line));
    }
};

std::chrono::milliseconds durationOf(const std::function<void()>& work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

} // namespace

TEST_F(Dispatcher, PingGetsTheWholeLineWordAndLineFeedIncluded)
{
    EXPECT_EQ(cycle("ping -c 1 192.168.77.1\n"), "pong");
    EXPECT_EQ(programs().calls(), Calls{"ping|-c|1|192.168.77.1"});
}

TEST_F(Dispatcher, AHandlersTextKeepsItsLineEnd)
{
    EXPECT_EQ(cycle("ping a\\\n"), "pong"); // a backslash before a line feed is nothing to the shell
    EXPECT_EQ(cycle("ping b\r\n"), "pong");
    EXPECT_EQ(programs().calls(), (Calls{"ping|a", "ping|b\r"}));
    cycle("command::\n");
    EXPECT_EQ(entries("Console command : :\n \n"), 1);
}

TEST_F(Dispatcher, ABurstWithoutLineFeedIsDispatchedAfterItsTime)
{
    const auto took = durationOf([this] { EXPECT_EQ(cycle("ping host"), "pong"); });
    EXPECT_GE(took.count(), 100);
}

TEST_F(Dispatcher, ABurstIsCollectedFor99MillisecondsAndDispatchedAt100)
{
    int asked = 0;
    const BurstStopwatch stopwatch([this, &asked] {
        if (++asked == 2)
            controller().write("host");
        return asked < 4 ? 99 : 96 + asked; // 100 the fourth time, and then on
    });
    EXPECT_EQ(cycle("ping "), "pong");
    EXPECT_EQ(programs().calls(), Calls{"ping|host"}); // what came at 99 ms belongs to it
    EXPECT_EQ(asked, 4); // and at 100 ms it was over
}

TEST_F(Dispatcher, CommandsAreSeparatedByNulBytes)
{
    EXPECT_EQ(cycle("ping a\n\0ping b\n"s), "pongpong");
    EXPECT_EQ(programs().calls(), (Calls{"ping|a", "ping|b"}));
}

TEST_F(Dispatcher, NoCommandOfABurstButTheLastNeedsALineFeed)
{
    EXPECT_EQ(cycle("ping a\0server=UDP 239.1.1.1 1000\0!0C_D_IX:05\0ping b\n"s), "pong*0C_d.SXpong");
    EXPECT_EQ(programs().calls(), (Calls{"ping|a", "ping|b"}));
    EXPECT_EQ(data.serverPort, "1000");
    EXPECT_EQ(data.ebsServiceIndex, 5u);
}

TEST_F(Dispatcher, ABurstThatIsReadInTwoBehindALineFeedLosesTheCommandBehindIt)
{
    EXPECT_EQ(cycle("ping a\n"), "pong");
    EXPECT_EQ(cycle("\0ping b\n\0ping c\n"s), "pong");
    EXPECT_EQ(programs().calls(), (Calls{"ping|a", "ping|c"}));
}

TEST_F(Dispatcher, CommandsSeparatedOnlyByALineFeedDispatchTheFirstWithAllText)
{
    cycle("server=UDP 239.1.1.1 1000\nscancur\n");
    EXPECT_EQ(entries("SETserver\n"), 1);
    EXPECT_EQ(entries("SCANcur\n"), 0);
    EXPECT_EQ(data.serverPort, "1000");
}

TEST_F(Dispatcher, TextBehindALineFeedBelongsToTheFirstCommand)
{
    EXPECT_EQ(cycle("ping a\nping b\n"), "pongpong"); // one command: the shell gets both lines
    EXPECT_EQ(programs().calls(), (Calls{"ping|a", "ping|b"}));
    EXPECT_EQ(entries("PINg\n"), 1);
}

TEST_F(Dispatcher, TheCharacterAfterUpdateIsSkippedUnchecked)
{
    for (const char* command : {"update 123\n", "updateX123\n", "update=123\n"}) {
        // An image that never comes: the announced size shows in what is asked for next.
        const std::string image(123, 'i');
        controller().write(command);
        std::thread sender([this, &image] {
            controller().read(std::strlen("waiting update\n"));
            controller().write(image + "none");
        });
        worker().doWork();
        sender.join();
        EXPECT_EQ(entries("UPDate\n"), 1) << command;
        EXPECT_EQ(uart.IsInputBytesPending(), 0) << command; // 123 bytes of image and 4 of CRC were taken
        log().forget();
    }
}

TEST_F(Dispatcher, AFramedIndexMayEndWithCarriageReturnAndLineFeed)
{
    EXPECT_EQ(cycle("!0C_D_IX:05\r\n"), "*0C_d.SX");
    EXPECT_EQ(data.ebsServiceIndex, 5u);
    EXPECT_EQ(cycle("!0C_D_IX:07\n"), "*0C_d.SX");
    EXPECT_EQ(data.ebsServiceIndex, 7u);
}

TEST_F(Dispatcher, ANulByteInFrontHidesTheCommandBehindIt)
{
    EXPECT_EQ(cycle("\0ping a\n"s), ""); // the search for the next NUL begins behind the first
    EXPECT_EQ(cycle("\0\0ping a\n"s), "pong");
}

TEST_F(Dispatcher, UnknownWordsAreSilentAndNotLogged)
{
    EXPECT_EQ(cycle("hello\n"), "");
    EXPECT_EQ(cycle("STOP_DAB\n"), "");
    EXPECT_EQ(cycle("dab tune\n"), "");
    EXPECT_EQ(cycle("\n"), "");
    for (const std::string& line : log().lines()) // the test's network has no eth0, which the link watch logs
        EXPECT_EQ(line.rfind("Ioctl failed.", 0), 0u) << line;
}

TEST_F(Dispatcher, ServerGetsTheProtocolThatBeginsItsText)
{
    const std::pair<const char*, protocol> rows[] = {{"server=RTP 239.1.1.1 1000\n", protocolRtp},
        {"server=UDP_T2MI 239.1.1.1 1000 4096 0\n", protocolUdpT2mi},
        {"server=RTP_T2MI 239.1.1.1 1000 4096 0\n", protocolRtpT2mi},
        {"server=UDP 239.1.1.1 1000\n", protocolUdp}};
    for (const auto& [command, expected] : rows) {
        EXPECT_EQ(cycle(command), "");
        EXPECT_EQ(data.serverProtocol, expected) << command;
    }
}

TEST_F(Dispatcher, ServerRaisesTheJoinRequest)
{
    net.joinRequested = false;
    cycle("server=UDP 239.1.1.1 1000\n");
    EXPECT_TRUE(net.joinRequested);
}

TEST_F(Dispatcher, AServerThatIsStoredInPartRaisesTheJoinRequestToo)
{
    for (const char* pair : {"", " 64", " x 1", " 64 x"}) {
        data.serverAddress = "239.0.0.1";
        net.joinRequested = false;
        EXPECT_EQ(cycle("server=UDP_T2MI 239.9.9.9 1000"s + pair + "\n"), "");
        EXPECT_EQ(data.serverAddress, "239.9.9.9") << pair;
        EXPECT_TRUE(net.joinRequested) << pair;
    }
    EXPECT_TRUE(log().contains("command \"server=\" failed: stoi"));
}

TEST_F(Dispatcher, AHandlerThatThrowsIsLoggedAndAnsweredWithSilence)
{
    EXPECT_EQ(cycle("server=UDP_T2MI 239.0.0.1 1234\n"), "");
    EXPECT_EQ(cycle("server=UDP localhost 1234\n"), "");
    EXPECT_EQ(cycle("scancur\n"), "");
    EXPECT_TRUE(log().contains("command \"scancur\" failed: stoi"));
    EXPECT_EQ(cycle("ping a\n"), "pong");
}

TEST_F(Dispatcher, TwoThousandBytesWithoutNulAreTakenInBurstsOfTheBuffersSize)
{
    controller().write(std::string(2000, 'x'));
    for (int i = 0; i < 4; ++i) // 640 + 640 + 640 + 80
        worker().doWork();
    EXPECT_EQ(uart.IsInputBytesPending(), 0);
    EXPECT_EQ(controller().readUntilQuiet(30), "");
    EXPECT_EQ(cycle("ping a\n"), "pong");
}

/// A word as the last bytes of a full burst, and the line that its handler logs first.
struct LastWord
{
    std::string word;
    const char* entry;
};

std::ostream& operator<<(std::ostream& out, const LastWord& row)
{
    return out << row.word;
}

class FullBuffer : public Dispatcher, public ::testing::WithParamInterface<LastWord>
{
protected:
    /// An update without a size takes one byte of image and a CRC.
    void feedUpdate()
    {
        controller().read(std::strlen("waiting update\n"));
        controller().write("inone");
    }
};

INSTANTIATE_TEST_SUITE_P(EachTextThatBeginsBehindItsWord, FullBuffer,
    ::testing::Values(LastWord{"server=", "SETserver\n"}, LastWord{"play=", "PLay\n"},
        LastWord{"ping", "PINg\n"}, LastWord{"interface=", "SETinterface\n"}, LastWord{"update", "UPDate\n"},
        LastWord{"!0C_D_IX:", "PLayPCIE n°\n"}, LastWord{"!0C_L_IX:", "ServiceNameEBS\n"},
        LastWord{"command:", "Console command :  \n"}));

TEST_P(FullBuffer, AWordAtItsVeryEndIsDispatchedAndStaysInside)
{
    const LastWord& last = GetParam();
    controller().write(std::string(640 - 1 - last.word.size(), 'x') + '\0' + last.word);
    std::thread update([this, &last] {
        if (last.word == "update")
            feedUpdate();
    });
    worker().doWork();
    update.join();
    EXPECT_EQ(entries(last.entry), 1) << last.word;
    EXPECT_EQ(uart.IsInputBytesPending(), 0);
    controller().readUntilQuiet(30);
    programs().forget();
    EXPECT_EQ(cycle("ping a\n"), "pong");
    EXPECT_EQ(programs().calls(), Calls{"ping|a"});
}

TEST_F(Dispatcher, RandomBurstsNeverEndIt)
{
    std::mt19937 random(20260101);
    const std::string alphabet = "abcdefghijklmnopqrstuvwxyz=?!_& 0123456789\xff\r"s + '\0';
    for (int i = 0; i < 300; ++i) {
        std::string burst;
        for (std::size_t n = random() % 80; n > 0; --n)
            burst += alphabet[random() % alphabet.size()];
        // The mark keeps the first text from being a command by chance.
        EXPECT_EQ(cycle("#" + burst + "\n"), "");
    }
    EXPECT_EQ(cycle("ping a\n"), "pong");
}

TEST_F(Dispatcher, WithTheLinkDownTheRoutingDaemonIsStoppedOnceOnly)
{
    net.smcrouteStarted = true;
    for (int i = 0; i < 5; ++i)
        worker().doWork();
    EXPECT_EQ(programs().calls(), Calls{"smcroute|-k"});
    EXPECT_EQ(EthernetConnected, 0);
}

TEST_F(Dispatcher, WithTheLinkUpTheGroupIsJoinedAndAgainWhenAJoinIsAskedFor)
{
    net.smcrouteStarted = false;
    net.joinRequested = false;
    EthernetConnected = 0;
    ASSERT_TRUE(privatenetwork::addVethPair("eth0", "uplink"));
    Steps steps(programs());
    worker().doWork();
    worker().doWork(); // nothing new: no call
    EXPECT_EQ(steps.take(),
        (Calls{"smcroute|-d", "wait 500000", "smcroute|-j|eth0|239.0.0.1"})); // it answers once it is up
    EXPECT_EQ(EthernetConnected, 1);
    cycle("server=UDP 239.1.2.3 1000\n");
    EXPECT_EQ(steps.take(), Calls{"smcroute|-j|eth0|239.1.2.3"});
    EXPECT_FALSE(net.joinRequested);
    privatenetwork::remove("eth0");
    worker().doWork();
    EXPECT_EQ(steps.take(), Calls{"smcroute|-k"});
    EXPECT_EQ(EthernetConnected, 0);
}

TEST_F(Dispatcher, EachPollIsFollowedByAnother)
{
    for (std::size_t polled = 1; polled <= 3; ++polled) {
        controller().write("ping a\n");
        EXPECT_TRUE(eventually([&] {
            QCoreApplication::processEvents();
            return programs().calls().size() == polled;
        })) << polled;
    }
}

TEST_F(Dispatcher, AClosedLineIsACycleWithoutInput)
{
    uart.SerialPortDisconnect();
    worker().doWork();
    EXPECT_TRUE(programs().calls().empty());
    ASSERT_GE(uart.SerialPortConnect(), 0);
}
