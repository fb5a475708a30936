// What NetworkManager is told (recorded), and what the kernel is asked about the wired interface (real ones
// of a private network namespace).
#include "support/allocations.h"
#include "support/privatemachine.h"
#include "support/privatenetwork.h"
#include "support/thisprocess.h"
#include "support/ttyfixture.h"
#include "system/network.h"
#include "system/system_config.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>

namespace {

using Calls = std::vector<std::string>;

const char deletePlain[] = "nmcli|con|del|Wired connection 1";
const char deleteVlan[] = "nmcli|con|del|Wired connection 1_vlan";
const std::string addPlain = "nmcli|con|add|con-name|Wired connection 1|ifname|eth0|type|ethernet";

class ConnectionSettings : public ::testing::Test
{
protected:
    ConnectionSettings() { programs.add("nmcli"); }

    RecordedPrograms programs;
    Network network;
};

class InterfaceQueries : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const std::string reason = privatenetwork::enter();
        if (!reason.empty())
            GTEST_SKIP() << reason;
        data = MyData();
        data.vlanId = "42";
    }

    void TearDown() override
    {
        for (const char* name : {"eth0", "eth0.42"})
            privatenetwork::remove(name);
    }

    static std::string address()
    {
        std::string out = "left from before";
        systconf.GetIpAddress(&out);
        return out;
    }

    static std::string netmask()
    {
        std::string out = "left from before";
        systconf.GetIpNetmask(&out);
        return out;
    }

    LogCapture log;
};

} // namespace

TEST(PrefixLength, OfWholeOctetsIsExact)
{
    Network network;
    EXPECT_EQ(network.HowManyBitsInMask("255.255.255.0"), 24u);
    EXPECT_EQ(network.HowManyBitsInMask("255.255.0.0"), 16u);
    EXPECT_EQ(network.HowManyBitsInMask("255.0.0.0"), 8u);
    EXPECT_EQ(network.HowManyBitsInMask("0.0.0.0"), 0u);
    EXPECT_EQ(network.HowManyBitsInMask("255.255.255.255"), 32u);
}

TEST(PrefixLength, OfOtherOctetsIsWhatTheLogarithmGives)
{
    Network network;
    EXPECT_EQ(network.HowManyBitsInMask("255.255.255.252"), 31u);
    EXPECT_EQ(network.HowManyBitsInMask("255.255.255.128"), 31u);
    EXPECT_EQ(network.HowManyBitsInMask("255.255.254.0"), 23u);
}

TEST(PrefixLength, OfMissingUnreadableAndTooLargePartsIsStillANumber)
{
    Network network;
    EXPECT_EQ(network.HowManyBitsInMask(""), 0u);
    EXPECT_EQ(network.HowManyBitsInMask("255.255"), 16u);
    EXPECT_EQ(network.HowManyBitsInMask("255..x.255"), 16u);
    EXPECT_EQ(network.HowManyBitsInMask("255.255.255.0;vlan_id=42"), 24u);
    EXPECT_EQ(network.HowManyBitsInMask("255.255.255.255.255"), 32u); // four parts only
    EXPECT_EQ(network.HowManyBitsInMask("511.255.255.255"), 24u); // 33 is no prefix
    EXPECT_EQ(network.HowManyBitsInMask("-1.255.0.0"), 24u);
    EXPECT_EQ(network.HowManyBitsInMask("-5.0.0.0"), 24u);
}

TEST_F(ConnectionSettings, DhcpReplacesBothConnectionsByAPlainOne)
{
    network.SetDHCP(false, "100");
    const Calls expected{
        deletePlain, deleteVlan, "nmcli|con|add|con-name|Wired connection 1|ifname|eth0|type|ethernet"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST_F(ConnectionSettings, DhcpWithVlanMakesNoPlainConnection)
{
    network.SetDHCP(true, "42");
    const Calls expected{
        deletePlain, deleteVlan, "nmcli|con|add|type|vlan|con-name|Wired connection 1_vlan|dev|eth0|id|42"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST_F(ConnectionSettings, StaticAddressHasPrefixAndGatewayOfItsNetwork)
{
    network.SetStaticIP("10.0.0.5", "255.0.0.0", false, "100");
    const Calls expected{deletePlain, deleteVlan,
        "nmcli|con|add|con-name|Wired connection 1|ifname|eth0|type|ethernet|ip4|10.0.0.5/8|gw4|10.0.0.254"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST_F(ConnectionSettings, StaticAddressOnAVlanHasNoGateway)
{
    network.SetStaticIP("192.168.1.20", "255.255.255.0", true, "42");
    const Calls expected{deletePlain, deleteVlan,
        "nmcli|con|add|type|vlan|con-name|Wired connection 1_vlan|dev|eth0|id|42|ip4|192.168.1.20/24"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST_F(ConnectionSettings, RefusalsOfNetworkManagerChangeNothing)
{
    programs.add("nmcli", "", "Error: unknown connection 'Wired connection 1'.\n", 10);
    network.SetDHCP(false, "100");
    EXPECT_EQ(programs.calls().size(), 3u);
}

TEST_F(ConnectionSettings, FollowTheSettingsRecord)
{
    MyData settings;
    settings.ipAddress = "192.168.1.20";
    settings.netmask = "255.255.255.0";
    settings.vlanId = "7";
    systconf.SetupInterfaceIP(&settings);
    settings.vlan = true;
    systconf.SetDHCPOn(&settings);
    const Calls expected{deletePlain, deleteVlan, addPlain + "|ip4|192.168.1.20/24|gw4|192.168.1.254",
        deletePlain, deleteVlan, "nmcli|con|add|type|vlan|con-name|Wired connection 1_vlan|dev|eth0|id|7"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST(IpStatus, IsIfconfigAndTheSpeedPartOfEthtoolForEth0WhateverTheVlan)
{
    data = MyData();
    data.vlan = true;
    data.vlanId = "42";
    RecordedPrograms programs;
    programs.add("ifconfig", "eth0: flags=4163<UP>\n        inet 192.168.1.20\n", "not shown");
    programs.add(
        "ethtool", "Settings for eth0:\n\tSupported ports: [ ]\n\tSpeed: 1000Mb/s\n\tDuplex: Full\n");
    EXPECT_EQ(Network().GetIpStatus(),
        "eth0: flags=4163<UP>\n        inet 192.168.1.20\nSpeed: 1000Mb/s\n\tDuplex: Full\n");
    const Calls expected{"ifconfig|eth0", "ethtool|eth0"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST(IpStatus, ThrowsWhenEthtoolNamesNoSpeed)
{
    RecordedPrograms programs;
    programs.add("ifconfig", "eth0: flags=4163<UP>\n");
    programs.add("ethtool", "Settings for eth0:\n\tLink detected: no\n");
    EXPECT_THROW(Network().GetIpStatus(), std::out_of_range);
}

TEST(IpStatus, ThrowsWhenTheProgramsAreMissing)
{
    const RecordedPrograms none;
    EXPECT_THROW(Network().GetIpStatus(), std::out_of_range);
}

TEST_F(InterfaceQueries, AddressAndMaskAreThoseOfTheWiredInterface)
{
    ASSERT_TRUE(privatenetwork::addVethPair("eth0", "uplink", "192.168.1.20/24"));
    EXPECT_EQ(address(), "192.168.1.20\n");
    EXPECT_EQ(netmask(), "255.255.255.0\n");
}

TEST_F(InterfaceQueries, AddressOfAnInterfaceWithoutOneIsWhatTheRequestHeld)
{
    ASSERT_TRUE(privatenetwork::addVethPair("eth0", "uplink"));
    EXPECT_EQ(address(), "0.0.0.0\n");
    EXPECT_EQ(netmask(), "0.0.0.0\n");
    EXPECT_TRUE(log.contains("PROBLEME IOCTL"));
}

TEST_F(InterfaceQueries, LinkIsThereWhenTheInterfaceIsUpAndTheFarEndToo)
{
    ASSERT_TRUE(privatenetwork::addVethPair("eth0", "uplink"));
    EXPECT_TRUE(systconf.ethernetConneted());
    for (const char* end : {"uplink", "eth0"}) {
        ASSERT_TRUE(privatenetwork::ip(std::string("link set ") + end + " down"));
        ASSERT_TRUE(privatenetwork::waitForLink("eth0", false));
        EXPECT_FALSE(systconf.ethernetConneted()) << end;
        ASSERT_TRUE(privatenetwork::ip(std::string("link set ") + end + " up"));
        ASSERT_TRUE(privatenetwork::waitForLink("eth0", true));
        EXPECT_TRUE(systconf.ethernetConneted()) << end;
    }
}

TEST_F(InterfaceQueries, AbsentInterfaceHasNoLinkAndIsLogged)
{
    EXPECT_FALSE(systconf.ethernetConneted());
    EXPECT_TRUE(log.contains("Ioctl failed. Errno = 19")); // ENODEV
}

TEST_F(InterfaceQueries, TheLoggedErrorIsTheCallsWhateverLoggingDoesToErrno)
{
    const allocations::ErrnoClearing clearing; // the logger allocates
    EXPECT_FALSE(systconf.ethernetConneted());
    EXPECT_TRUE(log.contains("Ioctl failed. Errno = 19")) << log.lines().back();
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_FALSE(systconf.ethernetConneted());
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_TRUE(log.contains("Socket failed. Errno = 24")); // EMFILE
    EXPECT_TRUE(log.contains("Ioctl failed. Errno = 9")); // EBADF
}

TEST_F(InterfaceQueries, WithVlanTheSubInterfaceIsAsked)
{
    ASSERT_TRUE(privatenetwork::addVethPair("eth0", "uplink", "192.168.1.20/24"));
    data.vlan = true;
    EXPECT_FALSE(systconf.ethernetConneted());
    ASSERT_TRUE(privatenetwork::addVethPair("eth0.42", "uplink42", "10.4.2.1/16"));
    EXPECT_TRUE(systconf.ethernetConneted());
    EXPECT_EQ(address(), "10.4.2.1\n");
    EXPECT_EQ(netmask(), "255.255.0.0\n");
}

TEST_F(InterfaceQueries, NothingStaysOpenBehindAQuestion)
{
    const auto openBefore = openDescriptors();
    systconf.ethernetConneted(); // the link watch asks with each poll
    EXPECT_EQ(openDescriptors(), openBefore);
    address();
    netmask();
    EXPECT_EQ(openDescriptors(), openBefore);
}

TEST_F(InterfaceQueries, NameTooLongForTheKernelIsCut)
{
    data.vlan = true;
    data.vlanId = std::string(200, '9');
    EXPECT_FALSE(systconf.ethernetConneted());
}
