#pragma once

#include "kit/bytes.h"

/// Transport stream packets (ISO/IEC 13818-1, 2.4.3.2) made by hand.
namespace tessary::test {

constexpr std::size_t packetBytes = 188;

/// adaptation_field_control, table 2-5.
enum AdaptationFieldControl : unsigned {
    reserved = 0,
    payloadOnly = 1,
    adaptationOnly = 2,
    adaptationAndPayload = 3
};

struct PacketParts
{
    AdaptationFieldControl control = payloadOnly;
    Bytes adaptation{0x00}; ///< flags and what they announce; where there is no payload the field is stuffed
    Bytes payload{};
    bool unitStart = false; ///< payload_unit_start_indicator
    std::uint8_t fill = 0xFF; ///< behind the payload
};

/// One packet of these parts.
Bytes makePacket(unsigned pid, unsigned counter, const PacketParts& parts = {});

/// Payload only, all of it `fill`.
Bytes packet(unsigned pid, unsigned counter, std::uint8_t fill = 0xAA);
/// The same behind an adaptation field of one flag byte.
Bytes packetWithFlags(unsigned pid, unsigned counter, std::uint8_t flags);
/// An adaptation field and nothing else.
Bytes packetWithoutPayload(unsigned pid, unsigned counter);
/// Payload behind a PCR of `base` 90 kHz periods and `extension` 27 MHz periods.
Bytes packetWithPcr(unsigned pid, unsigned counter, std::uint64_t base, unsigned extension);
/// Such a PCR as an adaptation field has it, behind its flag.
Bytes pcrField(std::uint64_t base, unsigned extension);

Bytes nullPacket();
/// So many null packets: a parser finds the packets' step in them.
Bytes nullPackets(std::size_t count);
/// A packet of PID 0x123 unlike its neighbours: `index` is in its continuity counter and its payload.
Bytes userPacket(unsigned index);

/// The packets that carry one section behind a pointer_field of 0, filled up with 0xFF. `counter` goes on.
Bytes packetsOf(unsigned pid, const Bytes& section, unsigned& counter);
/// The same from counter 0 on.
Bytes packetsOf(unsigned pid, const Bytes& section);

} // namespace tessary::test
