#include "rtp_header.h"

namespace tessary::sender {

void RtpHeader::write(std::uint8_t* out, std::int64_t streamTimeNs)
{
    // 90 kHz: 9 periods in 100,000 ns.
    const auto stamp =
        static_cast<std::uint32_t>(m_firstTimestamp + static_cast<std::uint64_t>(streamTimeNs / 100'000 * 9)
            + static_cast<std::uint64_t>(streamTimeNs % 100'000 * 9 / 100'000));
    out[0] = 0x80;
    out[1] = PayloadType;
    out[2] = static_cast<std::uint8_t>(m_sequence >> 8);
    out[3] = static_cast<std::uint8_t>(m_sequence);
    for (int i = 0; i < 4; ++i) {
        out[4 + i] = static_cast<std::uint8_t>(stamp >> (24 - 8 * i));
        out[8 + i] = static_cast<std::uint8_t>(m_ssrc >> (24 - 8 * i));
    }
    ++m_sequence;
}

} // namespace tessary::sender
