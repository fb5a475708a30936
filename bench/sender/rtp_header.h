#pragma once

#include <cstddef>
#include <cstdint>

namespace tessary::sender {

/// Writes the RTP headers of a transport stream (RFC 3550, RFC 2250 section 2): version 2, no padding,
/// extension or contributing source, marker clear, payload type 33, 90 kHz time stamp of the moment the
/// datagram is due.
class RtpHeader
{
public:
    static constexpr std::size_t Bytes = 12;
    static constexpr std::uint8_t PayloadType = 33;

    RtpHeader(std::uint32_t ssrc, std::uint16_t firstSequence, std::uint32_t firstTimestamp)
        : m_ssrc(ssrc)
        , m_firstTimestamp(firstTimestamp)
        , m_sequence(firstSequence)
    {
    }

    /// Writes the next header into `out` (12 bytes). `streamTimeNs`: the datagram's due time after the start.
    void write(std::uint8_t* out, std::int64_t streamTimeNs);

private:
    std::uint32_t m_ssrc;
    std::uint32_t m_firstTimestamp;
    std::uint16_t m_sequence;
};

} // namespace tessary::sender
