// The capture on real interfaces.
#include "capturefixture.h"
#include "support/privatenetwork.h"
#include "system/network.h"

#include <algorithm>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <memory>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const char startInput[] = "------------------pcap start input ------------------";
const char startOutput[] = "------------------pcap start output ------------------";
const char loopInput[] = "------------------pcap loop input ------------------";
const char loopOutput[] = "------------------pcap loop output ------------------";
const char stopped[] = "------------------pcap stop ------------------";

/// An interface without Ethernet headers: a tunnel, up while the object lives.
class Tunnel
{
public:
    explicit Tunnel(const char* name)
        : m_fd(open("/dev/net/tun", O_RDWR | O_CLOEXEC))
    {
        ifreq request{};
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        std::copy_n(name, std::char_traits<char>::length(name), request.ifr_name);
        m_made = ioctl(m_fd, TUNSETIFF, &request) == 0;
    }
    ~Tunnel() { close(m_fd); }
    Tunnel(const Tunnel&) = delete;
    Tunnel& operator=(const Tunnel&) = delete;
    bool made() const { return m_made; }

private:
    int m_fd;
    bool m_made = false;
};

/// Packet sockets of this process, and those among them that a program started by it would have as well.
struct PacketSockets
{
    int all = 0;
    int inheritable = 0;
};

PacketSockets packetSockets()
{
    PacketSockets found;
    for (int fd = 0; fd < 256; ++fd) {
        int domain = 0;
        socklen_t size = sizeof domain;
        if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0 || domain != AF_PACKET)
            continue;
        ++found.all;
        found.inheritable += (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0 ? 1 : 0;
    }
    return found;
}

} // namespace

// The routing daemon may be started while a capture runs, and runs on when the capture has ended.
TEST_F(Capture, IsNotInheritedByProgramsThatAreStarted)
{
    ASSERT_TRUE(addEth0());
    const PacketSockets before = packetSockets();
    measurement.start();
    ASSERT_TRUE(measurement.running);
    EXPECT_GT(packetSockets().all, before.all);
    EXPECT_EQ(packetSockets().inheritable, before.inheritable);
}

TEST_F(Capture, TakesTheStreamFromTheWiredInterface)
{
    ASSERT_TRUE(addEth0());
    measurement.start();
    ASSERT_TRUE(measurement.running);
    EXPECT_TRUE(net.joinRequested); // the group has to be joined again
    for (int i = 0; i < 5; ++i)
        send("uplink", sevenPackets);
    EXPECT_TRUE(eventually([this] { return recordCount() == 5; }));
    std::vector<int> values;
    measurement.getMeasure(&values);
    EXPECT_EQ(values[0], 1);
    EXPECT_EQ(values[4], 188);
    EXPECT_EQ(values[5], 7);
}

TEST_F(Capture, LogsEachStep)
{
    ASSERT_TRUE(addEth0());
    log.forget();
    measurement.start();
    measurement.stop();
    auto lines = log.lines();
    for (const char* line : {loopInput, loopOutput}) { // of the capture thread, at any place
        const auto where = std::find(lines.begin(), lines.end(), line);
        ASSERT_NE(where, lines.end()) << line;
        lines.erase(where);
    }
    ASSERT_EQ(lines.size(), 9u);
    EXPECT_EQ(lines[0], startInput);
    EXPECT_EQ(lines[1], "eth0 founded\r\n");
    EXPECT_EQ(lines[2].rfind("pcap_set_tstamp_type (0=success): ", 0), 0u); // the driver may refuse it
    EXPECT_EQ(lines[3], "pcap_set_tstamp_precision (0=success): 0");
    EXPECT_EQ(lines[4], "pcap_set_timeout (0=success): 0");
    EXPECT_EQ(lines[5], "pcap_set_immediate_mode (0=success): 0");
    EXPECT_EQ(lines[6], "pcap_activate (0=success): 0");
    EXPECT_EQ(lines[7], startOutput);
    EXPECT_EQ(lines[8], stopped);
}

TEST_F(Capture, TakesOnlyTheStreamOfTheFilter)
{
    ASSERT_TRUE(addEth0());
    Bytes otherGroup = sevenPackets;
    otherGroup[33] = 2; // 239.0.0.2
    Bytes otherPort = sevenPackets;
    otherPort[37] = 0xd3; // 1235
    measurement.start();
    send("uplink", otherGroup);
    send("uplink", otherPort);
    send("uplink", sevenPackets);
    EXPECT_TRUE(eventually([this] { return recordCount() > 0; }));
    EXPECT_EQ(recordCount(), 1u); // frames arrive in order: the others would have come before
}

TEST_F(Capture, StartWhileCapturingRestarts)
{
    ASSERT_TRUE(addEth0());
    measurement.start();
    send("uplink", sevenPackets);
    ASSERT_TRUE(eventually([this] { return recordCount() == 1; }));
    measurement.start();
    EXPECT_TRUE(measurement.running);
    EXPECT_EQ(recordCount(), 0u);
    EXPECT_EQ(logCount(stopped), 1);
    EXPECT_EQ(logCount(startOutput), 2);
    send("uplink", sevenPackets);
    EXPECT_TRUE(eventually([this] { return recordCount() == 1; }));
}

TEST_F(Capture, EndsWithItsMeasurement)
{
    ASSERT_TRUE(addEth0());
    const int socketsBefore = packetSockets().all;
    auto other = std::make_unique<ETHERNETMeasurement>();
    other->start();
    ASSERT_TRUE(other->running);
    other.reset();
    EXPECT_EQ(packetSockets().all, socketsBefore);
    EXPECT_EQ(logCount(loopOutput), 1); // the capture thread has ended
    EXPECT_EQ(logCount(stopped), 1);
}

TEST_F(Capture, LoadWhileCapturingStopsAndTheNextStartTakesTheNewStream)
{
    ASSERT_TRUE(addEth0());
    measurement.start();
    measurement.load(protocolRtp, "host 239.0.0.1 && port 1235");
    EXPECT_FALSE(measurement.running);
    EXPECT_TRUE(logHas(loopOutput));
    measurement.start();
    Bytes rtp = datagram(protocolRtp, Bytes(1428));
    rtp[37] = 0xd3;
    send("uplink", sevenPackets);
    send("uplink", rtp);
    ASSERT_TRUE(eventually([this] { return recordCount() > 0; }));
    EXPECT_EQ(recordCount(), 1u);
    EXPECT_EQ(measurement.tsPacketSize, 204);
}

TEST_F(Capture, StopEmptiesTheRecordsAndKeepsTheirStorage)
{
    ASSERT_TRUE(addEth0());
    measurement.start();
    send("uplink", sevenPackets);
    ASSERT_TRUE(eventually([this] { return recordCount() == 1; }));
    const std::int64_t lastFrame = receptionStatistics.oldTimestamp;
    measurement.stop();
    EXPECT_FALSE(measurement.running);
    EXPECT_EQ(recordCount(), 0u);
    EXPECT_EQ(measurement.buffer->capacity(), 1024u);
    EXPECT_EQ(receptionStatistics.oldTimestamp, lastFrame); // the period carries on
}

// The place of the oldest record begins anew as well.
TEST_F(Capture, KeepsTheRecordsInOrderWhenItIsStartedAgain)
{
    ASSERT_TRUE(addEth0());
    for (int run = 0; run < 3; ++run) {
        const std::int64_t before = receptionStatistics.oldTimestamp;
        measurement.start();
        ASSERT_TRUE(measurement.running);
        FrameSender uplink("uplink");
        std::int64_t first = 0;
        const auto someAreOverwritten = [&] {
            uplink.send(sevenPackets, 200);
            const auto kept = records();
            if (first == 0 && !kept.empty())
                first = kept.front().timestamp;
            return kept.size() == 1024 && kept.front().timestamp > first;
        };
        EXPECT_TRUE(eventually(someAreOverwritten)) << "run " << run;
        const auto kept = records();
        EXPECT_GT(first, before);
        EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end(),
            [](const auto& one, const auto& next) { return one.timestamp < next.timestamp; }))
            << "run " << run;
        measurement.stop();
        EXPECT_TRUE(records().empty());
    }
}

TEST_F(Capture, WithVlanTheFirstVlanInterfaceIsTakenWhateverTheId)
{
    ASSERT_TRUE(addEth0());
    ASSERT_TRUE(privatenetwork::addVethPair(
        "eth0.100", "far100", "10.1.0.1/24")); // libpcap lists the older one first
    ASSERT_TRUE(privatenetwork::addVethPair("eth0.200", "far200", "10.2.0.1/24"));
    data.vlan = true;
    data.vlanId = "200";
    measurement.start();
    ASSERT_TRUE(measurement.running);
    EXPECT_TRUE(logHas("eth0.100 founded\r\n"));
    send("far200", sevenPackets);
    send("far100", sevenPackets);
    EXPECT_TRUE(eventually([this] { return recordCount() > 0; }));
    EXPECT_EQ(recordCount(), 1u);
}

TEST_F(Capture, NeedsAnInterface)
{
    measurement.start();
    EXPECT_FALSE(measurement.running);
    EXPECT_TRUE(logHas("Couldn't get netmask for device"));
    EXPECT_FALSE(logHas(startOutput));
    EXPECT_FALSE(net.joinRequested);
}

TEST_F(Capture, NeedsAVlanInterfaceWhenOneIsSet)
{
    ASSERT_TRUE(addEth0());
    data.vlan = true;
    measurement.start();
    EXPECT_FALSE(measurement.running);
    EXPECT_TRUE(logHas("Couldn't get netmask for device"));
}

TEST_F(Capture, NeedsAnAddressOnTheInterface)
{
    ASSERT_TRUE(privatenetwork::addVethPair("eth0", "uplink"));
    measurement.start();
    EXPECT_FALSE(measurement.running);
    EXPECT_TRUE(logHas("eth0 founded\r\n"));
    EXPECT_TRUE(logHas("Couldn't get netmask for device"));
}

TEST_F(Capture, NeedsAFilterThatCanBeParsed)
{
    ASSERT_TRUE(addEth0());
    const int socketsBefore = packetSockets().all;
    measurement.load(protocolUdp, "host 239.0.0.1 && port no-such-port");
    measurement.start();
    EXPECT_FALSE(measurement.running);
    EXPECT_EQ(packetSockets().all, socketsBefore); // closed again
    EXPECT_TRUE(logHas("Couldn't parse filter\n"));
    measurement.load(protocolUdp, "host 239.0.0.1 && port 1234");
    measurement.start();
    EXPECT_TRUE(measurement.running);
}

TEST_F(Capture, NeedsAnEthernetInterface)
{
    const Tunnel tunnel("eth0");
    if (!tunnel.made())
        GTEST_SKIP() << "/dev/net/tun can not be used here";
    ASSERT_TRUE(privatenetwork::ip("link set eth0 up"));
    ASSERT_TRUE(privatenetwork::ip("addr add 192.168.77.100/24 dev eth0"));
    const int socketsBefore = packetSockets().all;
    measurement.start();
    EXPECT_FALSE(measurement.running);
    EXPECT_TRUE(logHas("Not an Ethernet adapter\n"));
    EXPECT_EQ(packetSockets().all, socketsBefore); // closed again
    measurement.stop(); // the closed handle is not touched
}

TEST_F(Capture, GoesOnAfterTheLinkWasDown)
{
    ASSERT_TRUE(addEth0());
    measurement.start();
    ASSERT_TRUE(privatenetwork::ip("link set uplink down"));
    ASSERT_TRUE(privatenetwork::waitForLink("eth0", false));
    ASSERT_TRUE(privatenetwork::ip("link set uplink up"));
    ASSERT_TRUE(privatenetwork::waitForLink("eth0", true));
    send("uplink", sevenPackets);
    EXPECT_TRUE(eventually([this] { return recordCount() == 1; }));
    EXPECT_TRUE(measurement.running);
}

TEST_F(Capture, OfALostInterfaceStopsWithoutHarm)
{
    ASSERT_TRUE(addEth0());
    measurement.start();
    privatenetwork::remove("eth0");
    EXPECT_TRUE(eventually(
        [this] { return logHas(loopOutput); })); // the loop has ended by itself and closed its handle
    EXPECT_TRUE(measurement.running); // until it is stopped
    measurement.stop();
    EXPECT_FALSE(measurement.running);
    ASSERT_TRUE(addEth0());
    measurement.start();
    send("uplink", sevenPackets);
    EXPECT_TRUE(eventually([this] { return recordCount() == 1; }));
}
