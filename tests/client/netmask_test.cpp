#include "client/netmask.h"

#include "client/usageerror.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::client;

std::string parsed(const std::string& address, const std::string& mask)
{
    const auto both = parseAddressAndMask(address, mask);
    return both.address + " " + both.mask;
}

std::string refusal(const std::string& address, const std::string& mask)
{
    try {
        return "taken: " + parsed(address, mask);
    } catch (const UsageError& failure) {
        EXPECT_FALSE(failure.remedy().empty());
        return failure.what();
    }
}

TEST(Netmask, IsTakenInAllItsForms)
{
    EXPECT_EQ(parsed("192.168.1.20", "255.255.255.0"), "192.168.1.20 255.255.255.0");
    EXPECT_EQ(parsed("192.168.1.20/24", ""), "192.168.1.20 255.255.255.0");
    EXPECT_EQ(parsed("192.168.1.20", "/24"), "192.168.1.20 255.255.255.0");
    EXPECT_EQ(parsed("192.168.1.20", "20"), "192.168.1.20 255.255.240.0");
    EXPECT_EQ(parsed("10.0.0.1/255.0.0.0", ""), "10.0.0.1 255.0.0.0");
    EXPECT_EQ(parsed("10.0.0.1/32", ""), "10.0.0.1 255.255.255.255");
    EXPECT_EQ(parsed("10.0.0.1/1", ""), "10.0.0.1 128.0.0.0");
}

TEST(Netmask, IsRefusedWithCauseAndRemedy)
{
    EXPECT_EQ(refusal("192.168.1.20", "255.0.255.0"),
        "mask \"255.0.255.0\" has holes: its ones have to come before its zeros");
    EXPECT_EQ(refusal("192.168.1.20", "0.0.0.255").find("mask \"0.0.0.255\" has holes"), 0U);
    EXPECT_EQ(refusal("192.168.1.20", "0.0.0.0"), "mask \"0.0.0.0\" has no ones");
    EXPECT_EQ(refusal("192.168.1.20/33", ""), "mask length \"33\" is no number from 1 to 32");
    EXPECT_EQ(refusal("192.168.1.20/0", ""), "mask length \"0\" is no number from 1 to 32");
    EXPECT_EQ(refusal("192.168.1.20", "/x"), "mask length \"x\" is no number from 1 to 32");
    EXPECT_EQ(refusal("192.168.1.20", ""), "no mask: a static address needs one");
    EXPECT_EQ(refusal("192.168.1.20/", ""), "no mask: a static address needs one");
    EXPECT_EQ(refusal("192.168.1.20/24", "255.255.255.0"),
        "the mask is given twice, as \"/24\" and as \"255.255.255.0\"");
    EXPECT_EQ(refusal("192.168.1", "24"), "address \"192.168.1\" is not written like 192.168.1.20");
    EXPECT_EQ(refusal("192.168.1.20", "255.255"), "mask \"255.255\" is not written like 192.168.1.20");
}

// What the instrument makes of octets between 0 and 255.
TEST(Netmask, IsKnownToBeMiscounted)
{
    EXPECT_FALSE(isMiscounted("255.255.255.0"));
    EXPECT_FALSE(isMiscounted("255.255.254.0"));
    EXPECT_TRUE(isMiscounted("255.255.240.0"));
}

} // namespace
