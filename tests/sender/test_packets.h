#pragma once

#include "kit/packets.h"

#include <map>
#include <string>

/// A small stream for the sender's tests, and an independent reading of what was sent.
namespace tessary::test {

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
