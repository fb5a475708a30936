#include "capturefixture.h"

#include "support/privatenetwork.h"
#include "system/network.h"

#include <algorithm>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

FrameSender::FrameSender(const char* interface)
    : m_fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0))
{
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr*>(&to), sizeof to), 0) << interface;
}

FrameSender::~FrameSender()
{
    close(m_fd);
}

unsigned FrameSender::send(const Bytes& frame, unsigned count)
{
    iovec bytes{const_cast<unsigned char*>(frame.data()), frame.size()}; // only read
    mmsghdr one{};
    one.msg_hdr.msg_iov = &bytes;
    one.msg_hdr.msg_iovlen = 1;
    std::vector<mmsghdr> messages(count, one);
    const int sent = sendmmsg(m_fd, messages.data(), count, 0);
    return sent < 0 ? 0 : static_cast<unsigned>(sent);
}

void Capture::SetUp()
{
    const std::string reason = privatenetwork::enter();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    data = MyData();
    net.joinRequested = false;
}

void Capture::TearDown()
{
    measurement.stop();
    for (const char* name : {"eth0", "eth0.100", "eth0.200"})
        privatenetwork::remove(name);
}

bool Capture::addEth0()
{
    return privatenetwork::addVethPair("eth0", "uplink", "192.168.77.100/24");
}

void Capture::send(const char* interface, const Bytes& frame)
{
    EXPECT_EQ(FrameSender(interface).send(frame), 1u);
}

std::vector<pcap_measured_value_struct> Capture::records()
{
    std::vector<pcap_measured_value_struct> out;
    measurement.getBuffer(&out);
    return out;
}

std::ptrdiff_t Capture::logCount(const char* line)
{
    const auto lines = log.lines();
    return std::count(lines.begin(), lines.end(), line);
}
