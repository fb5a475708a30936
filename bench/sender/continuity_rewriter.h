#pragma once

#include <array>
#include <cstdint>

#include "ts_packet.h"

namespace tessary::sender {

/// Keeps the continuity counters (ISO/IEC 13818-1, 2.4.3.3) of a repeated stream continuous, and breaks them
/// on demand.
///
/// Each PID has an offset that is added to the file's counter, so errors that the file itself has stay in it.
/// At the first packet of a PID in a new pass the offset is chosen so that the counter follows the last one
/// sent. Null packets are left alone. Not thread-safe.
class ContinuityRewriter
{
public:
    /// The next packet is again the first of the file.
    void startPass() { ++m_pass; }

    /// Rewrites the counter of one packet (188 bytes at least, changed in place).
    ///
    /// With `breakHere` the PID's counter jumps one further from this packet on, if this packet is one at
    /// which a strict check "previous + 1" looks and finds nothing now: it has payload and no discontinuity
    /// indicator, the PID was sent before and its counter is right. Such a check finds exactly one error
    /// then, and no packet is lost. Returns true when the counter was broken.
    bool process(std::uint8_t* packet, bool breakHere);

private:
    struct Pid
    {
        std::uint32_t pass = 0; // of the last packet; 0: none was sent
        std::uint8_t offset = 0;
        std::uint8_t sent = 0; // counter of the last packet as sent
    };

    std::array<Pid, ts::PidCount> m_pids{};
    std::uint32_t m_pass = 1;
};

} // namespace tessary::sender
