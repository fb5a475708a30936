#pragma once

#include <vector>

#include "datagram_source.h"
#include "error_schedule.h"
#include "options.h"
#include "packet_source.h"
#include "rtp_header.h"
#include "stream_facts.h"
#include "ts_file.h"

namespace tessary::sender {

/// Stream time in ns at which a datagram that `bitsBefore` bits precede is due at a constant rate.
std::int64_t timeAtRate(std::uint64_t bitsBefore, double bitsPerSecond);

/// The datagrams of a transport stream file, at a constant rate.
class StreamDatagrams : public DatagramSource
{
public:
    /// Borrows `file`. Throws StreamError when no rate is given and the file has no PCR.
    StreamDatagrams(const Options& options, const TsFile& file);

    std::int64_t nextTimeNs() override { return timeAtRate(m_bitsBefore, m_bitRate); }
    std::optional<Datagram> take() override;
    double tsBitRate() const override { return m_bitRate; }
    std::size_t headerBytes() const override { return m_rtpBytes; }
    std::uint64_t errorsMade() const override { return m_source.errorsMade(); }
    std::uint64_t passesBegun() const override { return m_source.passesBegun(); }

private:
    StreamDatagrams(const Options& options, const TsFile& file, const StreamFacts& facts);

    std::size_t m_packetSize; // bytes as sent
    double m_bitRate; // transport stream bits per second
    std::size_t m_rtpBytes;
    std::size_t m_packetsPerDatagram;
    PacketSource m_source;
    ErrorSchedule m_errors;
    RtpHeader m_rtp;
    std::vector<std::uint8_t> m_datagram;
    std::uint64_t m_bitsBefore = 0;
};

} // namespace tessary::sender
