#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Packets made by hand for the sender's tests, and an independent reading of what was sent.
namespace tessary::test {

using Bytes = std::vector<std::uint8_t>;

/// A 188-byte packet with payload only, filled with `fill`.
inline Bytes packet(unsigned pid, unsigned counter, std::uint8_t fill = 0xAA)
{
    Bytes bytes(188, fill);
    bytes[0] = 0x47;
    bytes[1] = static_cast<std::uint8_t>(pid >> 8);
    bytes[2] = static_cast<std::uint8_t>(pid);
    bytes[3] = static_cast<std::uint8_t>(0x10U | (counter & 15U));
    return bytes;
}

/// The same with an adaptation field of one flag byte before the payload.
inline Bytes packetWithFlags(unsigned pid, unsigned counter, std::uint8_t flags)
{
    Bytes bytes = packet(pid, counter);
    bytes[3] = static_cast<std::uint8_t>(0x30U | (counter & 15U));
    bytes[4] = 1;
    bytes[5] = flags;
    return bytes;
}

/// Adaptation field only (no payload).
inline Bytes packetWithoutPayload(unsigned pid, unsigned counter)
{
    Bytes bytes = packet(pid, counter, 0xFF);
    bytes[3] = static_cast<std::uint8_t>(0x20U | (counter & 15U));
    bytes[4] = 183;
    bytes[5] = 0;
    return bytes;
}

/// Adaptation field with a PCR of `base` 90 kHz periods and `extension` 27 MHz periods, and payload.
inline Bytes packetWithPcr(unsigned pid, unsigned counter, std::uint64_t base, unsigned extension)
{
    Bytes bytes = packet(pid, counter);
    bytes[3] = static_cast<std::uint8_t>(0x30U | (counter & 15U));
    bytes[4] = 7;
    bytes[5] = 0x10;
    const std::uint64_t field = (base << 15) | (std::uint64_t{0x3F} << 9) | extension;
    for (unsigned i = 0; i < 6; ++i)
        bytes[6 + i] = static_cast<std::uint8_t>(field >> (40 - 8 * i));
    return bytes;
}

/// PCR in 27 MHz periods of a packet made as above.
inline std::uint64_t pcrOf(const std::uint8_t* packet)
{
    std::uint64_t field = 0;
    for (unsigned i = 0; i < 6; ++i)
        field = (field << 8) | packet[6 + i];
    return (field >> 15) * 300 + (field & 0x1FF);
}

/// Counts errors of the rule "previous + 1" as the instrument does: null packets, packets without payload and
/// packets with the discontinuity indicator are not checked, but each sets the PID's counter.
inline unsigned strictErrors(const Bytes& stream, std::size_t packetSize = 188)
{
    std::map<unsigned, unsigned> last;
    unsigned errors = 0;
    for (std::size_t at = 0; at + packetSize <= stream.size(); at += packetSize) {
        const std::uint8_t* p = &stream[at];
        const unsigned pid = ((p[1] & 0x1FU) << 8) | p[2];
        const unsigned control = (p[3] >> 4) & 3U;
        const bool checked = control == 1 || (control == 3 && (p[4] == 0 || (p[5] & 0x80U) == 0));
        if (pid != 0x1FFF && checked && last.count(pid) != 0 && ((last[pid] + 1) & 15U) != (p[3] & 15U))
            ++errors;
        last[pid] = p[3] & 15U;
    }
    return errors;
}

/// A small multiplex of `packets` packets with a clock for `bitsPerSecond`: PID 256 carries PES packets and a
/// PCR every 16 packets, PID 257 a counter that starts at 9, PID 8191 stuffing.
Bytes smallStream(std::size_t packets, double bitsPerSecond);

/// Writes a file below the test's temporary folder and returns its path.
std::string writeFile(const std::string& name, const Bytes& bytes);

} // namespace tessary::test
