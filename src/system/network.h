#pragma once

#include <atomic>
#include <string>

/// Configuration of the wired interface through NetworkManager's `nmcli`, its status text, and multicast
/// routing through the `smcroute` daemon. Every operation runs on the main thread and blocks until its
/// commands have ended; exit statuses are not looked at.
class Network
{
public:
    /// Replaces the connection of "eth0" (or the VLAN connection) by one that gets its address by DHCP.
    void SetDHCP(bool vlan, std::string vlanId);

    /// Replaces the connection by one with the static address `ip` and the dotted `mask`. Without VLAN the
    /// gateway is the address with 254 as its last field; a VLAN connection gets none.
    void SetStaticIP(std::string ip, std::string mask, bool vlan, std::string vlanId);

    /// Prefix length of a dotted mask, by logarithms: exact for octets 255 and 0 only; 24 where the sum
    /// passes 32.
    unsigned HowManyBitsInMask(std::string mask);

    /// Output of "ifconfig eth0" followed by that of "ethtool eth0" from "Speed" on, always of eth0 itself.
    /// Throws std::out_of_range when ethtool gives no "Speed".
    std::string GetIpStatus();

    /// Starts the routing daemon unless this process has started it already.
    void StartSmcroute();
    /// Stops the routing daemon if this process has started it.
    void StopSmcroute();
    /// Joins the stream server's group on the wired interface: at most three attempts, with a restart of the
    /// routing daemon after each failed one. Lowers `joinRequested` when the join did not fail.
    void SendJoinMulticast();
    /// Leaves the stream server's group; changes no flag.
    void SendLeaveMulticast();

    std::atomic<bool> smcrouteStarted{false}; ///< the routing daemon has been started by this process
    std::atomic<bool> joinRequested{
        false}; ///< a join is wanted; raised from any thread, lowered by a successful join
};

extern Network net;
