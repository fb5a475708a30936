#include "commands/uart_command.h"
#include "kit/handlertest.h"
#include "measure/ethernetmeasurement.h"
#include "media/filesource.h"
#include "media/rtpsource.h"
#include "media/udpsource.h"
#include "standins.h"
#include "system/mydata.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace {

class PlayerCommands : public HandlerTest
{
protected:
    void prepare() override
    {
        data.serverAddress = "239.0.0.1";
        data.serverPort = "1234";
    }

    std::string silence() { return reply(30); }
};

long count(const std::vector<std::string>& lines, const std::string& line)
{
    return std::count(lines.begin(), lines.end(), line);
}

} // namespace

TEST_F(PlayerCommands, ServerWithT2miStoresProtocolAddressPortPidAndPlp)
{
    Uart_SetServer("UDP_T2MI 239.0.0.1 1234 4096 1\n");
    EXPECT_EQ(data.serverProtocol, protocolUdpT2mi);
    EXPECT_EQ(data.serverAddress, "239.0.0.1");
    EXPECT_EQ(data.serverPort, "1234");
    EXPECT_EQ(data.t2miPid, 4096u);
    EXPECT_EQ(data.t2miPlpId, 1u);
    EXPECT_EQ(silence(), "");
}

TEST_F(PlayerCommands, ServerWithoutT2miLeavesTheT2miPair)
{
    data.t2miPid = 77;
    data.t2miPlpId = 3;
    Uart_SetServer("RTP 10.0.0.5 5004\n");
    EXPECT_EQ(data.serverProtocol, protocolRtp);
    EXPECT_EQ(data.serverAddress, "10.0.0.5");
    EXPECT_EQ(data.serverPort, "5004");
    EXPECT_EQ(data.t2miPid, 77u);
    EXPECT_EQ(data.t2miPlpId, 3u);
}

TEST_F(PlayerCommands, TrailingFieldsOfAPlainServerAreIgnored)
{
    Uart_SetServer("UDP 239.0.0.1 1234 4096 1\n");
    EXPECT_EQ(data.serverProtocol, protocolUdp);
    EXPECT_EQ(data.serverPort, "1234");
    EXPECT_EQ(data.t2miPid, 0u);
}

TEST_F(PlayerCommands, T2miNamesAreLookedForBeforeThePlainOnes)
{
    Uart_SetServer("UDP RTP_T2MI 5000 1 2\n");
    EXPECT_EQ(data.serverProtocol, protocolRtpT2mi);
}

TEST_F(PlayerCommands, AnUnknownProtocolWordKeepsTheProtocol)
{
    data.serverProtocol = protocolRtp;
    Uart_SetServer("TCP 1.2.3.4 99\n");
    EXPECT_EQ(data.serverProtocol, protocolRtp);
    EXPECT_EQ(data.serverAddress, "1.2.3.4");
    EXPECT_EQ(data.serverPort, "99");
}

TEST_F(PlayerCommands, LineEndsAreNotPartOfThePort)
{
    Uart_SetServer("UDP 239.1.2.3 4321\r\n");
    EXPECT_EQ(data.serverPort, "4321");
    Uart_SetServer("UDP 239.1.2.3 4322"); // no line end at all
    EXPECT_EQ(data.serverPort, "4322");
}

TEST_F(PlayerCommands, AServerWithoutPortKeepsAddressAndPort)
{
    Uart_SetServer("RTP 10.0.0.5\n");
    EXPECT_EQ(data.serverProtocol, protocolRtp);
    EXPECT_EQ(data.serverAddress, "239.0.0.1");
    EXPECT_EQ(data.serverPort, "1234");
    Uart_SetServer("");
    Uart_SetServer("\n");
    Uart_SetServer(" UDP 1.1.1.1 1\n"); // begins with a blank: no address is read
    EXPECT_EQ(data.serverAddress, "239.0.0.1");
}

TEST_F(PlayerCommands, AT2miServerWithoutPidFieldsThrowsAfterStoringTheAddress)
{
    data.t2miPid = 5;
    EXPECT_THROW(Uart_SetServer("UDP_T2MI 239.0.0.9 1234\n"), std::invalid_argument);
    EXPECT_EQ(data.serverAddress, "239.0.0.9");
    EXPECT_EQ(data.t2miPid, 5u);
}

TEST_F(PlayerCommands, AT2miServerWithoutLineEndOrWithoutPlpKeepsThePair)
{
    data.t2miPid = 5;
    data.t2miPlpId = 6;
    Uart_SetServer("UDP_T2MI 239.0.0.9 1234");
    Uart_SetServer("RTP_T2MI 239.0.0.9 1234 4096\n");
    EXPECT_EQ(data.t2miPid, 5u);
    EXPECT_EQ(data.t2miPlpId, 6u);
    EXPECT_EQ(data.serverPort, "1234");
}

TEST_F(PlayerCommands, ServerQueryIsLoggedAndStaysSilent)
{
    LogCapture log;
    Uart_GetServer();
    EXPECT_EQ(log.lines(), std::vector<std::string>{"GETserver\n"});
    for (const protocol any : {protocolRtp, protocolUdpT2mi, protocolRtpT2mi}) {
        data.serverProtocol = any;
        Uart_GetServer();
    }
    EXPECT_EQ(count(log.lines(), "GETserver\n"), 4);
    EXPECT_EQ(silence(), "");
}

TEST_F(PlayerCommands, PlayWithoutSourceCreatesOneAndASecondPlayReusesIt)
{
    LogCapture log;
    Uart_Play("3\n");
    ASSERT_NE(instance, nullptr);
    EXPECT_NE(dynamic_cast<udpsource*>(instance), nullptr);
    EXPECT_EQ(data.programNumber, 3u);
    gstsource* first = instance;
    Uart_Play("5\n");
    EXPECT_EQ(instance, first);
    EXPECT_EQ(data.programNumber, 5u);
    EXPECT_EQ(count(log.lines(), "------------------udpsource constr ------------------"), 1);
    EXPECT_EQ(count(log.lines(), "------------------gstImpl play prog number= 5 ------------------"), 1);
    EXPECT_EQ(silence(), "");
}

TEST_F(PlayerCommands, PlayTakesADecimalNumber)
{
    Uart_Play("28097\n");
    EXPECT_EQ(data.programNumber, 28097u);
    Uart_Play("0x10\n");
    EXPECT_EQ(data.programNumber, 0u);
    Uart_Play("010\n");
    EXPECT_EQ(data.programNumber, 10u);
}

TEST_F(PlayerCommands, PlayOfNoNumberIsProgramZero)
{
    Uart_Play("abc\n");
    EXPECT_EQ(data.programNumber, 0u);
}

TEST_F(PlayerCommands, PlayKeepsASourceOfAnotherKind)
{
    instance = new filesource("/dev/null");
    gstsource* recording = instance;
    Uart_Play("1\n");
    EXPECT_EQ(instance, recording);
}

TEST_F(PlayerCommands, ScanAlwaysReplacesTheSourceEvenByOneOfTheSameKind)
{
    LogCapture log;
    Uart_Scancur();
    ASSERT_NE(instance, nullptr);
    Uart_Scancur();
    EXPECT_EQ(count(log.lines(), "------------------udpsource constr ------------------"), 2);
    EXPECT_EQ(count(log.lines(), "------------------udpsource Destruct ------------------"), 1);
    EXPECT_EQ(count(log.lines(), "------------------gstImpl scan ------------------"), 2);
    EXPECT_EQ(silence(), "");
}

TEST_F(PlayerCommands, EachProtocolMakesItsSource)
{
    Uart_SetServer("RTP 127.0.0.1 5004\n");
    Uart_Scancur();
    EXPECT_NE(dynamic_cast<rtpsource*>(instance), nullptr);
    Uart_SetServer("UDP 127.0.0.1 5004\n");
    Uart_Scancur();
    EXPECT_NE(dynamic_cast<udpsource*>(instance), nullptr);
}

TEST_F(PlayerCommands, AnAddressOrPortThatIsNoNumberThrowsAndLeavesNoSource)
{
    data.serverAddress = "localhost";
    EXPECT_THROW(Uart_Scancur(), std::invalid_argument);
    EXPECT_EQ(instance, nullptr);
    data.serverAddress = "239.0.0.1";
    data.serverPort = "port";
    EXPECT_THROW(Uart_Play("1\n"), std::invalid_argument);
    EXPECT_THROW(Uart_SendTS(), std::invalid_argument);
    data.serverPort = "99999999999999999999";
    EXPECT_THROW(Uart_Scancur(), std::out_of_range);
    EXPECT_EQ(instance, nullptr);
}

TEST_F(PlayerCommands, AProtocolThatDoesNotExistMakesNoSource)
{
    data.serverProtocol = static_cast<protocol>(4);
    Uart_Scancur();
    Uart_Play("2\n");
    Uart_SendTS();
    Uart_GetServer();
    EXPECT_EQ(instance, nullptr);
    EXPECT_EQ(data.programNumber, 2u); // noted all the same
    EXPECT_EQ(silence(), "");
}

TEST_F(PlayerCommands, SendTsEndsThePlayingAndSendsFromTheSameSource)
{
    Uart_Play("1\n");
    gstsource* first = instance;
    LogCapture log;
    Uart_SendTS();
    EXPECT_EQ(instance, first);
    EXPECT_EQ(log.lines(),
        (std::vector<std::string>{"SENDts\n", "------------------gstImpl stop ------------------",
            "------------------gstImpl sendTSstream ------------------"}));
}

TEST_F(PlayerCommands, QueriesWithoutSourceAreSilent)
{
    Uart_GetNIT();
    Uart_GetPMT();
    Uart_StreamInfo();
    Uart_GstreamerStatus();
    Uart_GetT2MIFrame();
    EXPECT_EQ(silence(), "");
}

TEST_F(PlayerCommands, QueriesBeforeAnySectionAreSilent)
{
    Uart_Scancur();
    Uart_GetNIT();
    Uart_GetPMT();
    Uart_StreamInfo();
    EXPECT_EQ(silence(), "");
}

TEST_F(PlayerCommands, StatusIsRunningAfterPlayAndStoppedAfterStop)
{
    Uart_Play("1\n");
    Uart_GstreamerStatus();
    EXPECT_EQ(silence(), "running");
    instance->stop();
    Uart_GstreamerStatus();
    EXPECT_EQ(silence(), "stopped");
}

TEST_F(PlayerCommands, T2miFrameQueryOfASourceOfAnotherKindIsSilent)
{
    instance = new filesource("/dev/null");
    data.serverProtocol = protocolUdpT2mi;
    Uart_GetT2MIFrame();
    data.serverProtocol = protocolRtpT2mi;
    Uart_GetT2MIFrame();
    EXPECT_EQ(silence(), "");
}

TEST_F(PlayerCommands, AT2miFrameIsRepliedWholeWhateverItsSize)
{
    standins::add();
    Uart_SetServer("UDP_T2MI 127.0.0.1 5004 64 102\n");
    Uart_Scancur();
    // Chunks of 4096, the line drained between two. 8202 bytes is the longest T2-MI packet; a
    // pseudo-terminal, which has nothing to drain, takes all of it.
    for (const std::size_t size : {0, 1, 4095, 4096, 4097, 8192, 8202}) {
        std::vector<std::uint8_t> frame(size);
        for (std::size_t i = 0; i < size; ++i)
            frame[i] = static_cast<std::uint8_t>(i * 7 >> 3);
        standins::setT2miFrame(frame);
        std::string received;
        std::thread reader([&] { received = controller().read(size); });
        Uart_GetT2MIFrame();
        reader.join();
        EXPECT_EQ(silence(), ""); // nothing follows
        EXPECT_EQ(received.size(), size);
        EXPECT_TRUE(received == std::string(frame.begin(), frame.end())) << size;
    }
}

TEST_F(PlayerCommands, AT2miFrameOverRtpIsRepliedToo)
{
    standins::add();
    Uart_SetServer("RTP_T2MI 127.0.0.1 5004 64 102\n");
    Uart_Scancur();
    standins::setT2miFrame({0x00, 0x07, 0x0a, 0xff});
    Uart_GetT2MIFrame();
    EXPECT_EQ(silence(), std::string("\x00\x07\x0a\xff", 4));
}

TEST_F(PlayerCommands, EachCommandLogsItsName)
{
    LogCapture log;
    Uart_SetServer("UDP 127.0.0.1 5004\n");
    Uart_GetServer();
    Uart_Scancur();
    Uart_SendTS();
    Uart_Play("1\n");
    Uart_GstreamerStatus();
    Uart_StreamInfo();
    Uart_GetNIT();
    Uart_GetPMT();
    Uart_GetT2MIFrame();
    for (const char* line : {"SETserver\n", "GETserver\n", "SCANcur\n", "SENDts\n", "PLay\n", "VIDeostatus\n",
             "STReaminfos\n", "GETnit\n", "GETpmt\n", "GetT2MIFrame\n"})
        EXPECT_EQ(count(log.lines(), line), 1) << line;
}
