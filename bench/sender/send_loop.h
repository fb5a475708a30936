#pragma once

#include <functional>

#include "datagram_socket.h"
#include "options.h"
#include "packet_source.h"
#include "report.h"
#include "rtp_header.h"
#include "stream_facts.h"
#include "ts_file.h"

namespace sender {

/// Everything of one sending, from options and file to the count. Runs on the calling thread.
class SendLoop
{
public:
    /// `stopRequested` is asked before each datagram and at least every 100 ms. Borrows `file`.
    /// Throws StreamError when no rate is given and the file has no PCR, NetworkError from the socket.
    SendLoop(const Options& options, const TsFile& file, std::function<bool()> stopRequested);

    /// Sends until the file, a limit or the stop ends it, and returns the count. Throws NetworkError when the
    /// first datagram can not be sent, or on an error that will not pass; later failures that can pass (link
    /// down) are counted.
    Report run();

private:
    SendLoop(const Options& options, const TsFile& file, const StreamFacts& facts,
        std::function<bool()> stopRequested);
    std::size_t fill(std::uint8_t* out);
    bool isOver(std::uint64_t datagrams, std::int64_t streamTimeNs) const;
    bool waitUntil(std::int64_t dueNs, bool& waited) const;
    bool send(const std::uint8_t* data, std::size_t size, bool isFirst, Report& report);

    Options m_options;
    std::size_t m_packetSize; // bytes as sent
    double m_bitRate; // transport stream bits per second
    std::function<bool()> m_stopRequested;
    DatagramSocket m_socket;
    PacketSource m_source;
    RtpHeader m_rtp;
};

} // namespace sender
