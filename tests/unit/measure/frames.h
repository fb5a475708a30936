#pragma once

#include "system/mydata.h"

#include <cstdint>
#include <pcap/pcap.h>
#include <vector>

/// Frames as libpcap delivers them: an untagged Ethernet header, IPv4 without options, UDP and, for RTP, its
/// 12-byte header.
using Bytes = std::vector<unsigned char>;

/// A datagram to 239.0.0.1:1234 around `payload`, with honest length fields and without checksums.
Bytes datagram(protocol transport, const Bytes& payload);

/// Overwrites the UDP length field of a frame that is long enough to have one.
void setUdpLength(Bytes& frame, unsigned length);

/// Adaptation field control (ISO/IEC 13818-1, table 2-5).
enum AdaptationFieldControl : unsigned {
    reserved = 0,
    payloadOnly = 1,
    adaptationOnly = 2,
    adaptationAndPayload = 3
};

/// A transport stream packet of 188 bytes. With an adaptation field, that is two bytes long (the second one
/// holds the flags) or, without payload, fills the packet.
Bytes tsPacket(unsigned pid, unsigned continuityCounter, AdaptationFieldControl control = payloadOnly,
    bool discontinuityIndicator = false);

Bytes joined(const std::vector<Bytes>& parts);

/// The capture header of a whole frame that arrived `microseconds` after the epoch.
pcap_pkthdr headerOf(const Bytes& frame, std::int64_t microseconds);
