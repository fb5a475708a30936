#pragma once

#include <cstdint>

namespace tessary::sender {

/// Moves the clocks of a repeated stream on: PCR (ISO/IEC 13818-1, 2.4.3.5), PTS and DTS (2.4.3.7) of all
/// programs are advanced by the length of one pass at each new pass, so that a receiver sees time going on
/// over the seam. OPCR, ESCR, splice points and the times inside tables stay; scrambled PES headers can not
/// be read and stay too.
class Restamper
{
public:
    /// `passTicks`: length of one pass in periods of 27 MHz; taken down to whole 90 kHz periods, which PTS
    /// and DTS count.
    explicit Restamper(std::uint64_t passTicks)
        : m_passTicks(passTicks / 300 * 300)
    {
    }

    /// The next packet is again the first of the file.
    void startPass() { m_offset += m_passTicks; }

    /// Advances the clocks in one packet (188 bytes at least) in place.
    void process(std::uint8_t* packet) const;

private:
    std::uint64_t m_passTicks;
    std::uint64_t m_offset = 0; // 27 MHz periods
};

} // namespace tessary::sender
