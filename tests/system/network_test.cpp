#include "systemsuite.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace {

using namespace tessary;
using namespace tessary::test;
using client::Milliseconds;
using Protocol = client::StreamServer::Protocol;

// NetworkManager, smcroute and the kernel are real; only failing joins are put in. Each test begins with
// DHCP, the link up and the group joined.
//   DHCP -> static -> DHCP        DHCP -> VLAN -> DHCP        link down and up in each of the three
//   "server=" while the link is down       joins that fail three times and succeed later
//   a capture that runs across each of these; its start asks for one more join

const QString group = "239.1.2.3";
constexpr int port = 5060;
constexpr Milliseconds presenceLasts(2100); ///< at most, after the last frame: what is present then is new
const QStringList dhcpCommands{"nmcli con del \"Wired connection 1\"",
    "nmcli con del \"Wired connection 1_vlan\"",
    "nmcli con add con-name \"Wired connection 1\" ifname eth0 type ethernet"};
const QStringList vlanCommands{dhcpCommands[0], dhcpCommands[1],
    "nmcli con add type vlan con-name \"Wired connection 1_vlan\" dev eth0 id 100"};
const QStringList staticCommands{
    dhcpCommands[0], dhcpCommands[1], dhcpCommands[2] + " ip4 192.168.77.50/24 gw4 192.168.77.254"};
const char staticAddress[] = "192.168.77.50 255.255.255.0";

QString joinOf(const QString& address, const QString& interface = "eth0")
{
    return "smcroute -j " + interface + " " + address;
}

class NetworkChanges : public SystemSuite
{
protected:
    void SetUp() override
    {
        setLink(true);
        setInterface("dhcp");
        setServer(group);
        instrument().ethernetAddress();
        ASSERT_TRUE(waitUntil([] { return isMember(group); })) << memberships();
        forget();
    }

    void TearDown() override
    {
        instrument().exec({"ip", "link", "del", "eth0.100"}); // where a test has made it
        EXPECT_NE(instrument().daemonPid(), 0);
    }

    static void setInterface(const std::string& argument)
    {
        EXPECT_EQ(line().ask("interface=" + argument + "\n"), "");
    }

    static std::string interfaceAnswer() { return controller().ask(client::request::interfaceAddress); }

    static void setServer(const QString& address)
    {
        controller().setServer({Protocol::Udp, address.toStdString(), port, 0, 0});
    }

    /// Returns when the kernel has told the interface, too.
    static void setLink(bool up)
    {
        instrument().setLink(up);
        const auto isUp = [] { return instrument().shell("cat /sys/class/net/eth0/operstate") == "up\n"; };
        EXPECT_TRUE(waitUntil([&] { return isUp() == up; }));
    }

    /// The daemon has handled what it was told, and has looked at the link behind that: this is done in the
    /// cycle of the first answer, so before the second.
    static void settle()
    {
        line().finish();
        line().finish();
    }

    /// The commands from here on are those that the test expects.
    static void forget()
    {
        settle();
        s_seen = instrument().commands().size();
    }

    /// What the daemon itself has run since.
    static QStringList daemonCommands()
    {
        QStringList texts;
        const auto all = instrument().commands();
        for (std::size_t i = s_seen; i < all.size(); ++i) {
            if (all[i].parent == "tessary")
                texts << all[i].text();
        }
        return texts;
    }

    /// These commands are run, and no other.
    static void expectCommands(const QStringList& expected)
    {
        waitUntil([&] { return daemonCommands().size() >= expected.size(); });
        settle();
        EXPECT_EQ(daemonCommands().join('\n').toStdString(), expected.join('\n').toStdString());
        forget();
    }

    static std::string memberships(const QString& interface = "eth0")
    {
        return instrument().exec({"ip", "-4", "maddr", "show", "dev", interface}).output.toStdString();
    }

    static bool isMember(const QString& address, const QString& interface = "eth0")
    {
        return memberships(interface).find("inet  " + address.toStdString()) != std::string::npos;
    }

    static void expectMember(const QString& address, const QString& interface = "eth0")
    {
        EXPECT_TRUE(waitUntil([&] { return isMember(address, interface); })) << memberships(interface);
    }

    static void expectAddress(const std::string& addressAndMask)
    {
        EXPECT_TRUE(waitUntil([&] { return interfaceAnswer() == addressAndMask + "\n"; }))
            << interfaceAnswer();
    }

    static void expectDhcpAddress()
    {
        const std::string leased = instrument().ethernetAddress().toStdString();
        EXPECT_EQ(leased.rfind("192.168.77.1", 0), 0U) << leased;
        expectAddress(leased + " 255.255.255.0");
        EXPECT_TRUE(waitUntil([] { return defaultRoute().contains("via 192.168.77.1 "); }))
            << defaultRoute().toStdString();
    }

    static QByteArray defaultRoute() { return instrument().shell("ip route show default"); }

    /// Where the kernel has no VLAN driver, one end of a veth pair is the VLAN's device: routing and capture
    /// go by its name. The other end, far100, has 10.1.0.2.
    static void makeVlanInterface()
    {
        setInterface("vlan_id=100;dhcp");
        expectCommands(vlanCommands + QStringList{"smcroute -k"});
        instrument().shell("ip link add eth0.100 type veth peer name far100");
        instrument().shell("nmcli device set eth0.100 managed no; nmcli device set far100 managed no");
        instrument().shell("ip address add 10.1.0.1/24 dev eth0.100; ip address add 10.1.0.2/24 dev far100");
        instrument().shell("ip link set eth0.100 up; ip link set far100 up");
        expectCommands({"smcroute -d", joinOf(group, "eth0.100")});
        expectMember(group, "eth0.100");
        expectAddress("10.1.0.1 255.255.255.0");
    }

    /// The link is lost and comes back: routing is stopped, started and joined, and nothing else happens.
    static void expectLinkIsFollowed()
    {
        setLink(false);
        expectCommands({"smcroute -k"});
        EXPECT_EQ(interfaceAnswer(), "not connected\n");
        setLink(true);
        expectCommands({"smcroute -d", joinOf(group)});
        expectMember(group);
    }

    /// The count of packets in a datagram tells one stream from another.
    static RunningStream sendStream(
        const QString& address = group, const QString& bitRate = "5M", int packetsPerDatagram = 7)
    {
        return instrument().send(
            {madeStream("demo.ts"), QString("udp://%1:%2").arg(address).arg(port), "--interface", "uplink",
                "--bitrate", bitRate, "--loop", "--packets", QString::number(packetsPerDatagram)});
    }

    static bool isPresent(int packetsPerDatagram = 7)
    {
        const auto values = controller().measurement();
        return values.has_value() && values->present && values->packetSize == 188
            && values->packetsPerDatagram == packetsPerDatagram;
    }

    /// The first measurement starts the capture, which asks for a join.
    static void expectCaptureStarts(int packetsPerDatagram = 7, const QString& address = group)
    {
        EXPECT_TRUE(waitUntil([packetsPerDatagram] { return isPresent(packetsPerDatagram); }));
        expectCommands({joinOf(address)});
    }

    /// How often the capture has been started and has ended since the daemon's start.
    struct Captures
    {
        int started;
        int ended;
        bool operator==(const Captures& other) const
        {
            return started == other.started && ended == other.ended;
        }
    };

    static Captures captures()
    {
        const QByteArray log = instrument().daemonLog();
        return {static_cast<int>(log.count("------------------pcap start output ------------------")),
            static_cast<int>(log.count("------------------pcap loop output ------------------"))};
    }

private:
    static std::size_t s_seen;
};

std::size_t NetworkChanges::s_seen = 0;

} // namespace

TEST_F(NetworkChanges, StaticAddressAndBackToDhcp)
{
    setInterface(staticAddress);
    expectCommands(staticCommands);
    expectAddress(staticAddress);
    EXPECT_TRUE(waitUntil([] { return defaultRoute().contains("via 192.168.77.254 "); }))
        << defaultRoute().toStdString();
    setInterface("dhcp");
    expectCommands(dhcpCommands);
    expectDhcpAddress();
}

TEST_F(NetworkChanges, VlanAndBackToDhcp)
{
    setInterface("vlan_id=100;dhcp");
    expectCommands(
        vlanCommands + QStringList{"smcroute -k"}); // no such device yet, or no kernel support: no link
    EXPECT_EQ(interfaceAnswer(), "not connected\n");
    const QByteArray connections = instrument().shell("nmcli -t -f name,type connection show");
    EXPECT_TRUE(connections.contains("Wired connection 1_vlan:vlan")) << connections.constData();
    EXPECT_FALSE(connections.contains("Wired connection 1:")) << connections.constData();
    setInterface("dhcp");
    expectCommands(dhcpCommands + QStringList{"smcroute -d", joinOf(group)});
    expectDhcpAddress();
    expectMember(group);
}

TEST_F(NetworkChanges, LinkDownAndUpWithDhcp)
{
    expectLinkIsFollowed();
    expectDhcpAddress();
}

TEST_F(NetworkChanges, LinkDownAndUpWithAStaticAddress)
{
    setInterface(staticAddress);
    expectCommands(staticCommands);
    expectAddress(staticAddress);
    expectLinkIsFollowed();
    expectAddress(staticAddress);
}

TEST_F(NetworkChanges, LinkDownAndUpWithAVlanThatHasNoDevice)
{
    setInterface("vlan_id=100;dhcp");
    expectCommands(vlanCommands + QStringList{"smcroute -k"});
    setLink(false);
    expectCommands({});
    setLink(true);
    expectCommands({}); // the plain interface is not the one in use
}

TEST_F(NetworkChanges, ServerSetWhileTheLinkIsDownIsJoinedWhenItComesUp)
{
    setLink(false);
    expectCommands({"smcroute -k"});
    setServer("239.1.2.4");
    expectCommands({});
    setLink(true);
    expectCommands({"smcroute -d", joinOf("239.1.2.4")});
    expectMember("239.1.2.4");
}

TEST_F(NetworkChanges, ServerSetWhileTheLinkIsUpIsJoinedAtOnce)
{
    setServer("239.1.2.5");
    expectCommands({joinOf("239.1.2.5")});
    expectMember("239.1.2.5");
}

TEST_F(NetworkChanges, LinkDownAndUpOnTheInterfaceOfTheVlan)
{
    makeVlanInterface();
    instrument().shell("ip link set far100 down");
    expectCommands({"smcroute -k"});
    EXPECT_EQ(interfaceAnswer(), "not connected\n");
    instrument().shell("ip link set far100 up");
    expectCommands({"smcroute -d", joinOf(group, "eth0.100")});
    expectMember(group, "eth0.100");
    expectAddress("10.1.0.1 255.255.255.0");
}

TEST_F(NetworkChanges, CaptureRunsOnAcrossALostLink)
{
    const RunningStream stream = sendStream();
    expectCaptureStarts();
    const Captures before = captures();
    setLink(false);
    expectCommands({"smcroute -k"});
    EXPECT_FALSE(controller().measurement().has_value());
    std::this_thread::sleep_for(presenceLasts);
    setLink(true);
    expectCommands({"smcroute -d", joinOf(group)});
    EXPECT_TRUE(waitUntil([] { return isPresent(); }));
    EXPECT_TRUE(captures() == before);
    expectCommands({});
}

TEST_F(NetworkChanges, CaptureRunsOnWhenTheSameServerIsSetWhileTheLinkIsDown)
{
    const RunningStream stream = sendStream();
    expectCaptureStarts();
    const Captures before = captures();
    setLink(false);
    expectCommands({"smcroute -k"});
    setServer(group);
    EXPECT_FALSE(controller().measurement().has_value());
    expectCommands({});
    std::this_thread::sleep_for(presenceLasts);
    setLink(true);
    expectCommands({"smcroute -d", joinOf(group)});
    EXPECT_TRUE(waitUntil([] { return isPresent(); }));
    EXPECT_TRUE(captures() == before);
    expectCommands({});
}

/// Until it is asked with the link up, the capture goes on with the old server's stream.
TEST_F(NetworkChanges, CaptureFollowsAServerThatIsSetWhileTheLinkIsDownWithTheNextMeasurement)
{
    const QString other = "239.1.2.7";
    const RunningStream stream = sendStream();
    const RunningStream otherStream = sendStream(other, "5M", 5);
    expectCaptureStarts();
    const Captures before = captures();
    setLink(false);
    expectCommands({"smcroute -k"});
    setServer(other);
    EXPECT_FALSE(controller().measurement().has_value());
    expectCommands({});
    setLink(true);
    expectCommands({"smcroute -d", joinOf(other)});
    EXPECT_TRUE(captures() == before);

    expectCaptureStarts(5, other);
    EXPECT_TRUE(captures() == (Captures{before.started + 1, before.ended + 1}));
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(isPresent(5));
    expectCommands({});
}

/// The joins keep the main thread for seconds, the capture's own thread goes on.
TEST_F(NetworkChanges, CaptureRunsOnAcrossAJoinThatFailsThreeTimesAndSucceedsLater)
{
    const RunningStream stream = sendStream(group, "1M"); // 1024 arrival records are some 10 s
    expectCaptureStarts();
    const Captures before = captures();
    instrument().misbehave(
        {"smcroute", "--when=-j", "--status", "1", "--stderr", "No such device", "--times", "3"});
    line().write("server=UDP 239.1.2.3 5060\n");
    const QStringList failed{joinOf(group), "smcroute -k", "smcroute -d"};
    expectCommands(failed + failed + failed + QStringList{joinOf(group)});
    expectMember(group);
    EXPECT_TRUE(isPresent());
    EXPECT_TRUE(captures() == before);
    const auto intervals = controller().interArrivalTimes().value_or(std::vector<std::int64_t>{});
    ASSERT_GT(intervals.size(), 95U * 3); // 95 a second, and the joins alone wait three times a second
    EXPECT_LT(*std::max_element(intervals.begin() + 1, intervals.end()), 1000000);
    expectCommands({});
}

TEST_F(NetworkChanges, CaptureStopsWithAChangeOfTheInterfaceAndTheNextMeasurementStartsItAgain)
{
    const RunningStream stream = sendStream();
    expectCaptureStarts();
    const std::pair<const char*, QStringList> changes[]{
        {staticAddress, staticCommands}, {"dhcp", dhcpCommands}};
    for (const auto& [change, commands] : changes) {
        const Captures before = captures();
        setInterface(change);
        EXPECT_TRUE(captures() == (Captures{before.started, before.ended + 1})) << change;
        expectCommands(commands);
        // No capture without an address, which Debian 13 gives only when nobody else has it.
        EXPECT_TRUE(waitUntil([] { return interfaceAnswer().rfind("192.168.77.", 0) == 0; }));
        expectCaptureStarts();
        EXPECT_TRUE(captures() == (Captures{before.started + 1, before.ended + 1})) << change;
    }
}

TEST_F(NetworkChanges, CaptureOutlivesAVlanWithoutADevice)
{
    const RunningStream stream = sendStream();
    expectCaptureStarts();
    setInterface("vlan_id=100;dhcp");
    EXPECT_FALSE(controller().measurement().has_value());
    expectCommands(vlanCommands + QStringList{"smcroute -k"});
    setInterface("dhcp");
    expectCommands(dhcpCommands + QStringList{"smcroute -d", joinOf(group)});
    expectCaptureStarts();
}

TEST_F(NetworkChanges, InterfaceOfTheVlanIsJoinedAndMeasured)
{
    makeVlanInterface();
    EXPECT_TRUE(controller().measurement().has_value());
    expectCommands({joinOf(group, "eth0.100")});
    const QString program =
        "import socket, time\n"
        "s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)\n"
        "s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton('10.1.0.2'))\n"
        "while True:\n" // until the test takes the interface away
        "    s.sendto(bytes(7 * 188), ('239.1.2.3', 5060))\n"
        "    time.sleep(0.005)\n";
    instrument().shell("/usr/bin/python3 -c \"" + program + "\" >/dev/null 2>&1 &");
    EXPECT_TRUE(waitUntil([] { return isPresent(); }));
    EXPECT_TRUE(instrument().daemonLog().contains("eth0.100 founded"));
}
