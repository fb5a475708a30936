#pragma once

#include "kit/packets.h"

/// Starts of PES packets (ISO/IEC 13818-1, 2.4.3.6), of a stream of MPEG sound without a length.
namespace tessary::test {

/// From the byte behind PES_packet_length on.
inline const Bytes untimedPes{0x80, 0x00, 0x00};
inline const Bytes timedPes{0x80, 0x80, 0x05, 0x21, 0x00, 0x05, 0xBF, 0x21};

/// The packet in which such a PES packet begins.
inline Bytes pesStart(unsigned pid, unsigned counter, const Bytes& header)
{
    Bytes payload{0x00, 0x00, 0x01, 0xC0, 0x00, 0x00};
    append(payload, header);
    payload.resize(packetBytes - 4, 0x55);
    return makePacket(pid, counter % 16, {payloadOnly, {}, payload, true});
}

} // namespace tessary::test
