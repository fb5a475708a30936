// The network and measurement commands: recorded programs, real interfaces of a private network namespace,
// and the controller's line.
#include "../measure/frames.h"
#include "commands/uart_command.h"
#include "kit/gstreamer.h"
#include "measure/ethernetmeasurement.h"
#include "media/filesource.h"
#include "support/privatemachine.h"
#include "support/privatenetwork.h"
#include "support/ttyfixture.h"
#include "system/network.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using Calls = std::vector<std::string>;

const char deletePlain[] = "nmcli|con|del|Wired connection 1";
const char deleteVlan[] = "nmcli|con|del|Wired connection 1_vlan";
const char notMeasured[28] = {
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0};

/// Settings as after a start, no source, an idle measurement and a machine with "nmcli", "ethtool" and
/// "ifconfig" recorded.
class NetworkCommands : public ControllerLine
{
protected:
    void SetUp() override
    {
        const std::string reason = privatenetwork::enter();
        if (!reason.empty())
            GTEST_SKIP() << reason;
        ControllerLine::SetUp();
        if (IsSkipped())
            return;
        data = MyData();
        data.serverAddress = "239.0.0.1";
        data.serverPort = "1234";
        data.vlanId = "100";
        data.dhcp = true;
        for (const char* name : {"nmcli", "ethtool", "ifconfig"})
            programs.add(name);
        receptionStatistics.LastReceivedPacketTime = 0;
        ethMes = &measurement;
    }

    void TearDown() override
    {
        measurement.stop();
        ethMes = nullptr;
        for (const char* name : {"eth0", "eth0.100"})
            privatenetwork::remove(name);
        ControllerLine::TearDown();
    }

    bool addEth0() { return privatenetwork::addVethPair("eth0", "uplink", "192.168.1.20/24"); }

    std::string replyOf(void (*command)())
    {
        command();
        return controller().readUntilQuiet();
    }

    std::string replyTo(const std::string& interfaceArgument)
    {
        Uart_SetInterface(interfaceArgument);
        return controller().readUntilQuiet();
    }

    /// Hands a frame to the measurement as the capture would.
    void receive(std::int64_t microseconds)
    {
        const pcap_pkthdr header = headerOf(frame, microseconds);
        ETHERNETMeasurement::onPacketReceived(
            reinterpret_cast<unsigned char*>(&measurement), &header, frame.data());
    }

    LogCapture log;
    RecordedPrograms programs;
    ETHERNETMeasurement measurement;
    const Bytes frame = datagram(protocolUdp, Bytes(1316));
};

} // namespace

TEST_F(NetworkCommands, InterfaceIsAddressAndMask)
{
    ASSERT_TRUE(addEth0());
    EXPECT_EQ(replyOf(Uart_GetInterface), "192.168.1.20 255.255.255.0\n");
    EXPECT_EQ(log.lines().back(), "GETinterface\n");
}

TEST_F(NetworkCommands, InterfaceWithoutLinkIsNotConnected)
{
    EXPECT_EQ(replyOf(Uart_GetInterface), "not connected\n");
    ASSERT_TRUE(addEth0());
    ASSERT_TRUE(privatenetwork::ip("link set uplink down"));
    ASSERT_TRUE(privatenetwork::waitForLink("eth0", false));
    EXPECT_EQ(replyOf(Uart_GetInterface), "not connected\n");
}

TEST_F(NetworkCommands, TheRecordersCommandsStopTheCapture)
{
    ASSERT_TRUE(addEth0());
    for (void (*command)() : {Uart_PVR_Stop, Uart_PVR_Export}) {
        measurement.start();
        ASSERT_TRUE(measurement.running);
        command();
        EXPECT_FALSE(measurement.running);
    }
}

TEST_F(NetworkCommands, DhcpHasNoVlanAndStopsTheCapture)
{
    ASSERT_TRUE(addEth0());
    measurement.start();
    ASSERT_TRUE(measurement.running);
    data.vlan = true;
    EXPECT_EQ(replyTo("dhcp\n"), "");
    EXPECT_FALSE(data.vlan);
    EXPECT_FALSE(measurement.running);
    const Calls expected{
        deletePlain, deleteVlan, "nmcli|con|add|con-name|Wired connection 1|ifname|eth0|type|ethernet"};
    EXPECT_EQ(programs.calls(), expected);
    EXPECT_TRUE(log.contains("SETinterface\n"));
}

TEST_F(NetworkCommands, DhcpOnAVlan)
{
    EXPECT_EQ(replyTo("vlan_id=42;dhcp\r\n"), "");
    EXPECT_TRUE(data.vlan);
    EXPECT_EQ(data.vlanId, "42");
    const Calls expected{
        deletePlain, deleteVlan, "nmcli|con|add|type|vlan|con-name|Wired connection 1_vlan|dev|eth0|id|42"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST_F(NetworkCommands, DhcpBeforeTheVlanIsTheSame)
{
    replyTo("dhcp;vlan_id=7\r\n");
    EXPECT_EQ(data.vlanId, "7");
    EXPECT_EQ(
        programs.calls().back(), "nmcli|con|add|type|vlan|con-name|Wired connection 1_vlan|dev|eth0|id|7");
}

TEST_F(NetworkCommands, DhcpNeverTurnsTheInformationalFlagOnAgain)
{
    replyTo("192.168.1.20 255.255.255.0\n");
    EXPECT_FALSE(data.dhcp);
    replyTo("dhcp\n");
    EXPECT_FALSE(data.dhcp);
}

TEST_F(NetworkCommands, StaticAddressStopsTheCapture)
{
    ASSERT_TRUE(addEth0());
    measurement.start();
    EXPECT_EQ(replyTo("192.168.1.20 255.255.255.0\r\n"), "");
    EXPECT_EQ(data.ipAddress, "192.168.1.20");
    EXPECT_EQ(data.netmask, "255.255.255.0");
    EXPECT_FALSE(data.dhcp);
    EXPECT_FALSE(measurement.running);
    const Calls expected{deletePlain, deleteVlan,
        "nmcli|con|add|con-name|Wired connection "
        "1|ifname|eth0|type|ethernet|ip4|192.168.1.20/24|gw4|192.168.1.254"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST_F(NetworkCommands, StaticAddressWithVlanBehindIt)
{
    replyTo("192.168.1.20 255.255.255.0;vlan_id=42\n");
    EXPECT_EQ(data.ipAddress, "192.168.1.20");
    EXPECT_EQ(data.netmask, "255.255.255.0;vlan_id=42"); // up to the end: its last part then counts as 0
    EXPECT_EQ(programs.calls().back(),
        "nmcli|con|add|type|vlan|con-name|Wired connection 1_vlan|dev|eth0|id|42|ip4|192.168.1.20/24");
}

TEST_F(NetworkCommands, StaticAddressWithoutMask)
{
    replyTo("192.168.1.20\n");
    EXPECT_EQ(data.ipAddress, "192.168.1.20");
    EXPECT_EQ(data.netmask, "");
    EXPECT_EQ(programs.calls().back(),
        "nmcli|con|add|con-name|Wired connection "
        "1|ifname|eth0|type|ethernet|ip4|192.168.1.20/0|gw4|192.168.1.254");
}

TEST_F(NetworkCommands, EthtoolPartRunsFirstUpToTheSemicolon)
{
    replyTo("ethtool -s eth0 speed 100 duplex full autoneg off;dhcp\n");
    ASSERT_EQ(programs.calls().size(), 4u);
    EXPECT_EQ(programs.calls().front(), "ethtool|-s|eth0|speed|100|duplex|full|autoneg|off");
}

TEST_F(NetworkCommands, EthtoolPartAtTheEndRunsWithoutItsLineEnd)
{
    replyTo("dhcp;ethtool -s eth0 autoneg on\r\n");
    EXPECT_EQ(programs.calls().front(), "ethtool|-s|eth0|autoneg|on");
}

TEST_F(NetworkCommands, EmptyArgumentIsHarmless)
{
    EXPECT_EQ(replyTo(""), "");
    EXPECT_EQ(replyTo("\n"), "");
    EXPECT_EQ(replyTo("ethtool"), "");
    EXPECT_EQ(replyTo("vlan_id="), "");
    EXPECT_EQ(data.vlanId, "");
}

TEST_F(NetworkCommands, IpStatusGoesToTheControllerAndToTheConsole)
{
    programs.add("ifconfig", "eth0: flags=4163<UP>\n");
    programs.add("ethtool", "Settings for eth0:\n\tSpeed: 100Mb/s\n");
    EXPECT_EQ(replyOf(Uart_IpStatus), "eth0: flags=4163<UP>\nSpeed: 100Mb/s\n");
    EXPECT_EQ(console().readUntilQuiet(), "eth0: flags=4163<UP>\nSpeed: 100Mb/s\n");
    EXPECT_EQ(log.lines().back(), "IPStatus\n");
}

TEST_F(NetworkCommands, IpStatusWithoutASpeedThrowsAndRepliesNothing)
{
    EXPECT_THROW(Uart_IpStatus(), std::out_of_range);
    EXPECT_EQ(controller().readUntilQuiet(), "");
}

TEST_F(NetworkCommands, MeasurementWithoutLinkIsOnlyNotConnectedAndLeavesTheCapture)
{
    EXPECT_EQ(replyOf(Uart_GetEthernetMeasurement), "not connected\n");
    EXPECT_EQ(replyOf(Uart_GetIAT), "not connected\n");
    ASSERT_TRUE(addEth0());
    measurement.start();
    ASSERT_TRUE(privatenetwork::ip("link set uplink down"));
    ASSERT_TRUE(privatenetwork::waitForLink("eth0", false));
    data.serverPort = "1235";
    EXPECT_EQ(replyOf(Uart_GetEthernetMeasurement), "not connected\n");
    EXPECT_TRUE(measurement.running);
    EXPECT_EQ(measurement.filter, "host 239.0.0.1 && port 1234");
}

TEST_F(NetworkCommands, FirstMeasurementStartsTheCaptureAndReportsNothingPresent)
{
    ASSERT_TRUE(addEth0());
    EXPECT_EQ(replyOf(Uart_GetEthernetMeasurement), std::string(notMeasured, sizeof notMeasured));
    EXPECT_TRUE(measurement.running);
    EXPECT_TRUE(net.joinRequested);
    EXPECT_TRUE(log.contains("GETethernetmes\n"));
    EXPECT_EQ(replyOf(Uart_GetIAT), "");
    EXPECT_TRUE(log.contains("GETiat\n"));
}

TEST_F(NetworkCommands, MeasurementIsSevenLittleEndianIntegers)
{
    ASSERT_TRUE(addEth0());
    Uart_GetEthernetMeasurement();
    controller().readUntilQuiet();
    measurement.lastBitrate = 0x01020304;
    measurement.delayFactorMs = 450;
    measurement.discontinuities = -1;
    receive(1'700'000'000'000'000);
    measurement.lastBitrate = 0x01020304;
    measurement.delayFactorMs = 450;
    measurement.discontinuities = -1;
    const unsigned char expected[28] = {1, 0, 0, 0, // present
        4, 3, 2, 1, // bit/s
        0xc2, 1, 0, 0, // ms
        0xff, 0xff, 0xff, 0xff, // continuity errors
        188, 0, 0, 0, 7, 0, 0, 0, 10, 0, 0, 0};
    const std::string reply = replyOf(Uart_GetEthernetMeasurement);
    ASSERT_EQ(reply.size(), sizeof expected);
    EXPECT_EQ(std::memcmp(reply.data(), expected, sizeof expected), 0);
}

TEST_F(NetworkCommands, InterArrivalTimesAreMicrosecondsEachWithASemicolon)
{
    ASSERT_TRUE(addEth0());
    Uart_GetIAT();
    receive(1'700'000'000'000'000);
    receptionStatistics.oldTimestamp = 1'700'000'000'000'000;
    measurement.buffer->clear();
    for (const std::int64_t gap : {998, 1002, 1000, -3})
        receive(receptionStatistics.oldTimestamp + gap);
    EXPECT_EQ(replyOf(Uart_GetIAT), "998;1002;1000;-3;");
    EXPECT_EQ(replyOf(Uart_GetIAT), "998;1002;1000;-3;"); // the records stay
}

TEST_F(NetworkCommands, AllOf1024InterArrivalTimesArrive)
{
    ASSERT_TRUE(addEth0());
    Uart_GetIAT();
    receptionStatistics.oldTimestamp = 1'700'000'000'000'000;
    std::string expected;
    for (int i = 0; i < 1024; ++i) {
        receive(receptionStatistics.oldTimestamp + 100'000 + i);
        expected += std::to_string(100'000 + i) + ";";
    }
    EXPECT_EQ(replyOf(Uart_GetIAT), expected);
}

TEST_F(NetworkCommands, UnchangedSettingsLeaveTheCaptureRunning)
{
    ASSERT_TRUE(addEth0());
    Uart_GetEthernetMeasurement();
    ASSERT_TRUE(log.waitFor("------------------pcap loop input ------------------")); // the thread's own time
    log.forget();
    Uart_GetEthernetMeasurement();
    Uart_GetIAT();
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"GETethernetmes\n", "GETiat\n"}));
}

TEST_F(NetworkCommands, ChangeOfAddressPortOrProtocolRestartsTheCapture)
{
    ASSERT_TRUE(addEth0());
    Uart_GetEthernetMeasurement();
    const std::function<void()> changes[] = {[] { data.serverAddress = "239.0.0.2\r\n"; },
        [] { data.serverPort = "5000\n"; }, [] { data.serverProtocol = protocolRtp; }};
    for (const auto& change : changes) {
        change();
        log.forget();
        Uart_GetEthernetMeasurement();
        EXPECT_TRUE(log.contains("------------------pcap stop ------------------"));
        EXPECT_TRUE(log.contains("------------------pcap load ------------------"));
        EXPECT_TRUE(log.contains("------------------pcap start output ------------------"));
        EXPECT_TRUE(measurement.running);
    }
    EXPECT_EQ(measurement.filter, "host 239.0.0.2 && port 5000");
    EXPECT_EQ(measurement.protocol, protocolRtp);
}

TEST_F(NetworkCommands, FailedCaptureIsAnsweredWithZeros)
{
    ASSERT_TRUE(privatenetwork::addVethPair(
        "eth0", "uplink")); // a link, but no address: the capture can not be set up
    EXPECT_EQ(replyOf(Uart_GetEthernetMeasurement), std::string(notMeasured, sizeof notMeasured));
    EXPECT_EQ(replyOf(Uart_GetIAT), "");
    EXPECT_FALSE(measurement.running);
}

TEST_F(NetworkCommands, MeasurementCommandsStopThePlaying)
{
    tessary::test::startGStreamer();
    filesource source("/dev/zero");
    instance = &source;
    for (void (*command)() : {Uart_GetEthernetMeasurement, Uart_GetIAT}) {
        std::string status;
        source.scanStream();
        source.status(&status);
        ASSERT_EQ(status, "running");
        command(); // without link: the playing ends all the same
        source.status(&status);
        EXPECT_EQ(status, "stopped");
    }
    instance = nullptr;
}
