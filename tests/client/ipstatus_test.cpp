#include "client/ipstatus.h"

#include <gtest/gtest.h>

using namespace tessary::client;

namespace {

constexpr const char* whole = R"(eth0: flags=4163<UP,BROADCAST,RUNNING,MULTICAST>  mtu 1500
        inet 192.168.1.20  netmask 255.255.255.0  broadcast 192.168.1.255
        inet6 fe80::5054:ff:fe12:3456  prefixlen 64  scopeid 0x20<link>
        inet6 fd00::1  prefixlen 64  scopeid 0x0<global>
        ether 52:54:00:12:34:56  txqueuelen 1000  (Ethernet)
        RX packets 1243772  bytes 5671166918 (5.2 GiB)
        RX errors 1  dropped 2  overruns 3  frame 4
        TX packets 10  bytes 900 (900.0 B)
        TX errors 0  dropped 5 overruns 6  carrier 0  collisions 0

Speed: 1000Mb/s
	Duplex: Full
	Auto-negotiation: on
	Port: Twisted Pair
	PHYAD: 4
	Link detected: yes
)";

TEST(IpStatus, IsTakenApart)
{
    const IpStatus status = parseIpStatus(whole);
    EXPECT_EQ(status.address, "192.168.1.20");
    EXPECT_EQ(status.mask, "255.255.255.0");
    EXPECT_EQ(status.broadcast, "192.168.1.255");
    EXPECT_EQ(status.ipv6, (std::vector<std::string>{"fe80::5054:ff:fe12:3456", "fd00::1"}));
    EXPECT_EQ(status.mac, "52:54:00:12:34:56");
    EXPECT_EQ(status.flags, (std::vector<std::string>{"UP", "BROADCAST", "RUNNING", "MULTICAST"}));
    EXPECT_EQ(status.mtu, 1500);
    ASSERT_TRUE(status.received.has_value() && status.sent.has_value());
    EXPECT_EQ(status.received->packets, 1243772U);
    EXPECT_EQ(status.received->bytes, 5671166918U);
    EXPECT_EQ(status.received->errors, 1U);
    EXPECT_EQ(status.received->dropped, 2U);
    EXPECT_EQ(status.received->overruns, 3U);
    EXPECT_EQ(status.sent->dropped, 5U);
    EXPECT_EQ(status.sent->overruns, 6U);
    EXPECT_EQ(status.speedMbps, 1000);
    EXPECT_EQ(status.duplex, "full");
    EXPECT_EQ(status.autoNegotiation, true);
    EXPECT_EQ(status.port, "Twisted Pair");
    EXPECT_EQ(status.linkDetected, true);
}

TEST(IpStatus, WhatIsNotSaidIsNothing)
{
    const IpStatus status = parseIpStatus("eth0: flags=4099<UP>  mtu 1500\n\nSpeed: Unknown!\n"
                                          "\tDuplex: Unknown! (255)\n\tLink detected: no\n");
    EXPECT_FALSE(status.address.has_value());
    EXPECT_FALSE(status.received.has_value());
    EXPECT_FALSE(status.speedMbps.has_value());
    EXPECT_FALSE(status.duplex.has_value());
    EXPECT_FALSE(status.autoNegotiation.has_value());
    EXPECT_EQ(status.linkDetected, false);
    EXPECT_TRUE(parseIpStatus("").flags.empty());
    for (const char* word : {"flags=1<", "\nPort: ", "inet6 ", "RX packets 1  bytes 1 "}) // no end in sight
        EXPECT_FALSE(parseIpStatus(word + std::string(1000000, 'f')).received.has_value());
}

} // namespace
