#pragma once

#include <cstdint>
#include <string>

/// Transport of the IP stream: the values of MyData::serverProtocol and of the measurement.
enum protocol : std::int32_t {
    protocolUdp = 0,
    protocolRtp = 1,
    protocolUdpT2mi = 2,
    protocolRtpT2mi = 3,
};

/// The process-wide settings record. It starts from fixed defaults at every start and changes only by
/// command; nothing is stored. Main thread only.
struct MyData
{
    protocol serverProtocol = protocolUdp;
    std::string serverAddress; ///< IPv4 address of the stream, dotted text; multicast group or unicast
    std::string serverPort; ///< UDP port, decimal text
    std::uint32_t ebsServiceIndex = 0; ///< service index last given to the framed play command, as sent
    std::uint32_t programNumber = 0; ///< MPEG program number selected for playing
    std::uint32_t t2miPid = 0; ///< PID that carries T2-MI (T2-MI protocols only)
    std::uint32_t t2miPlpId = 0; ///< physical layer pipe to extract from T2-MI
    bool dhcp = false; ///< informational: false once a static address was configured, never set back
    std::string ipAddress; ///< static IPv4 address, dotted text
    std::string netmask; ///< static netmask, dotted text
    bool vlan = false; ///< traffic runs on the VLAN sub-interface "eth0." + vlanId
    std::string vlanId; ///< VLAN id, decimal text
};

extern MyData data;

/// Name of the wired interface that capture, address queries and routing follow: "eth0", or "eth0." and the
/// VLAN id.
std::string wiredInterfaceName(bool vlan, const std::string& vlanId);
