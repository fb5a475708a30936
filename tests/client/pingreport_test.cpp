#include "client/answererror.h"
#include "client/pingreport.h"

#include <gtest/gtest.h>

using namespace tessary::client;

namespace {

TEST(PingReport, IsTakenApart)
{
    const PingReport report =
        parsePing("PING gateway (192.168.1.1) 56(84) bytes of data.\n"
                  "64 bytes from 192.168.1.1: icmp_seq=1 ttl=64 time=0.345 ms\n"
                  "64 bytes from 192.168.1.1: icmp_seq=3 ttl=63 time=12 ms\n"
                  "\n--- gateway ping statistics ---\n"
                  "3 packets transmitted, 2 received, 33.3333% packet loss, time 2003ms\n"
                  "rtt min/avg/max/mdev = 0.345/6.172/12.000/5.828 ms\n");
    EXPECT_EQ(report.address, "192.168.1.1");
    EXPECT_EQ(report.transmitted, 3);
    EXPECT_EQ(report.received, 2);
    ASSERT_EQ(report.replies.size(), 2U);
    EXPECT_EQ(report.replies[1].sequence, 3);
    EXPECT_EQ(report.replies[1].timeToLive, 63);
    EXPECT_DOUBLE_EQ(report.replies[1].milliseconds, 12);
    ASSERT_TRUE(report.roundTrip.has_value());
    EXPECT_DOUBLE_EQ(report.roundTrip->shortest, 0.345);
    EXPECT_DOUBLE_EQ(report.roundTrip->mean, 6.172);
    EXPECT_DOUBLE_EQ(report.roundTrip->longest, 12);
    EXPECT_DOUBLE_EQ(report.roundTrip->deviation, 5.828);
}

TEST(PingReport, WithoutRepliesThereIsNoRoundTrip)
{
    const PingReport report =
        parsePing("PING 192.168.1.9 (192.168.1.9) 56(84) bytes of data.\n"
                  "From 192.168.1.20 icmp_seq=1 Destination Host Unreachable\n"
                  "\n--- 192.168.1.9 ping statistics ---\n"
                  "1 packets transmitted, 0 received, +1 errors, 100% packet loss, time 0ms\n\n");
    EXPECT_EQ(report.received, 0);
    EXPECT_TRUE(report.replies.empty());
    EXPECT_FALSE(report.roundTrip.has_value());
    EXPECT_THROW(parsePing("ping: nosuch: Name or service not known\n"), AnswerError);
}

} // namespace
