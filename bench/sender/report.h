#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tessary::sender {

/// What was sent, counted datagram by datagram.
class Report
{
public:
    /// `headerBytes`: Ethernet, IPv4, UDP and RTP headers of each datagram; `targetBitRate`: transport stream
    /// bits per second.
    Report(std::size_t headerBytes, double targetBitRate)
        : m_headerBytes(headerBytes)
        , m_targetBitRate(targetBitRate)
    {
    }

    /// One datagram of `packets` packets and `tsBytes` bytes of them went out at `nowNs`; `waited` tells
    /// whether the sender slept for it, `lagNs` how late it was.
    void sent(std::size_t packets, std::size_t tsBytes, std::int64_t nowNs, std::int64_t lagNs, bool waited);

    void failed() { ++m_failed; } ///< one datagram was refused by the network

    /// Figures that others keep, set at the end.
    void finish(std::uint64_t errorsMade, std::uint64_t passes, std::int64_t movedNs);

    /// Seconds from the first datagram to the end of the last one's share of time; 0 when none was sent.
    double seconds() const;
    double tsBitRate() const; ///< bits per second of packets; 0 when none was sent
    double frameBitRate() const; ///< bits per second of whole frames; 0 when none was sent
    std::uint64_t datagrams() const { return m_datagrams; }
    std::uint64_t frameBits() const { return (m_tsBytes + m_datagrams * m_headerBytes) * 8; }

    std::string json() const; ///< one line, without line feed
    std::string text() const; ///< some lines for people

private:
    std::size_t m_headerBytes;
    double m_targetBitRate;
    std::uint64_t m_datagrams = 0;
    std::uint64_t m_packets = 0;
    std::uint64_t m_tsBytes = 0;
    std::uint64_t m_lastTsBytes = 0;
    std::uint64_t m_failed = 0;
    std::uint64_t m_errorsMade = 0;
    std::uint64_t m_passes = 0;
    std::uint64_t m_burst = 0;
    std::uint64_t m_longestBurst = 0;
    std::int64_t m_firstNs = 0;
    std::int64_t m_lastNs = 0;
    std::int64_t m_maxLagNs = 0;
    std::int64_t m_movedNs = 0;
};

} // namespace tessary::sender
