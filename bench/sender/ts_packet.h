#pragma once

#include <cstddef>
#include <cstdint>

/// Fields of a transport stream packet (ISO/IEC 13818-1, 2.4.3.2). All functions take a whole packet of at
/// least 188 bytes that starts with the sync byte, and keep no pointer to it.
namespace tessary::sender::ts {

constexpr std::size_t PacketBytes = 188; ///< a plain packet
constexpr std::size_t CodedPacketBytes =
    204; ///< a packet with 16 bytes of Reed-Solomon parity (ETSI EN 300 429)
constexpr std::uint8_t SyncByte = 0x47;
constexpr unsigned NullPid = 0x1FFF;
constexpr unsigned PidCount = 0x2000;

inline unsigned pid(const std::uint8_t* packet)
{
    return ((packet[1] & 0x1FU) << 8) | packet[2];
}

inline bool startsUnit(const std::uint8_t* packet)
{
    return (packet[1] & 0x40U) != 0;
}

inline bool isScrambled(const std::uint8_t* packet)
{
    return (packet[3] & 0xC0U) != 0;
}

inline unsigned continuityCounter(const std::uint8_t* packet)
{
    return packet[3] & 0x0FU;
}

inline void setContinuityCounter(std::uint8_t* packet, unsigned counter)
{
    packet[3] = static_cast<std::uint8_t>((packet[3] & 0xF0U) | (counter & 0x0FU));
}

inline bool hasPayload(const std::uint8_t* packet)
{
    return (packet[3] & 0x10U) != 0;
}

/// True when an adaptation field with its flag byte is there; a field of length 0 is stuffing only.
inline bool hasAdaptationFlags(const std::uint8_t* packet)
{
    return (packet[3] & 0x20U) != 0 && packet[4] > 0;
}

inline bool isDiscontinuity(const std::uint8_t* packet)
{
    return hasAdaptationFlags(packet) && (packet[5] & 0x80U) != 0;
}

/// True when the adaptation field carries a PCR, in the six bytes from offset 6 on.
inline bool hasPcr(const std::uint8_t* packet)
{
    return hasAdaptationFlags(packet) && packet[4] >= 7 && (packet[5] & 0x10U) != 0;
}

/// Offset of the payload's first byte; PacketBytes when there is none.
inline std::size_t payloadOffset(const std::uint8_t* packet)
{
    if (!hasPayload(packet))
        return PacketBytes;
    const std::size_t offset = (packet[3] & 0x20U) != 0 ? 5U + packet[4] : 4U;
    return offset < PacketBytes ? offset : PacketBytes;
}

/// The PCR in periods of 27 MHz; only when hasPcr().
std::uint64_t pcr(const std::uint8_t* packet);

/// Write `ticks` (27 MHz; taken modulo the PCR's range) as the PCR; only when hasPcr().
void setPcr(std::uint8_t* packet, std::uint64_t ticks);

/// Turns of the 33-bit base: the PCR's range in 27 MHz periods.
constexpr std::uint64_t PcrRange = (std::uint64_t{1} << 33) * 300;

} // namespace tessary::sender::ts
