#pragma once

#include "kit/packets.h"
#include "system/mydata.h"

#include <pcap/pcap.h>

/// Frames as libpcap delivers them: an untagged Ethernet header, IPv4 without options, UDP and, for RTP, its
/// 12-byte header.
using namespace tessary::test;

/// A datagram to 239.0.0.1:1234 around `payload`, with honest length fields and without checksums.
Bytes datagram(protocol transport, const Bytes& payload);

/// Overwrites the UDP length field of a frame that is long enough to have one.
void setUdpLength(Bytes& frame, unsigned length);

/// A transport stream packet whose payload is all ones, like the flag that it may have.
Bytes tsPacket(unsigned pid, unsigned continuityCounter, AdaptationFieldControl control = payloadOnly,
    bool discontinuityIndicator = false);

/// The capture header of a whole frame that arrived `microseconds` after the epoch.
pcap_pkthdr headerOf(const Bytes& frame, std::int64_t microseconds);
