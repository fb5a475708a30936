#include "client/tessaryctl/portload.h"

#include "client/tessaryctl/groups.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::ctl;

TEST(PortLoad, ReadsWhatIfconfigPrints)
{
    EXPECT_EQ(receivedBytes("eth0: flags=4163<UP>  mtu 1500\n        RX packets 12  bytes 3456 (3.3 KiB)\n"
                            "        TX packets 1  bytes 60 (60.0 B)\n"),
        3456U);
    EXPECT_EQ(receivedBytes("RX packets 1  bytes 9999999999999 (9.0 TiB)"), 9999999999999U);
    EXPECT_FALSE(receivedBytes("").has_value());
    EXPECT_FALSE(receivedBytes("TX packets 1  bytes 60").has_value());
}

TEST(PortLoad, TellsOtherTrafficFromAVaryingStream)
{
    EXPECT_FALSE(hasOtherTraffic(10.3e6, 10e6));
    EXPECT_FALSE(hasOtherTraffic(12e6, 10e6));
    EXPECT_TRUE(hasOtherTraffic(15e6, 10e6));
    EXPECT_FALSE(hasOtherTraffic(0.9e6, 0)); // housekeeping of a network
    EXPECT_FALSE(hasOtherTraffic(5e6, 10e6)); // the stream has just begun
}

TEST(Groups, AreToldFromOtherAddresses)
{
    EXPECT_TRUE(isGroup("224.0.0.1"));
    EXPECT_TRUE(isGroup("239.255.255.255"));
    EXPECT_FALSE(isGroup("223.0.0.1"));
    EXPECT_FALSE(isGroup("240.0.0.1"));
    EXPECT_FALSE(isGroup("239.0.0"));
}

} // namespace
