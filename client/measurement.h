#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessary::client {

/// The answer to "getethernetmes?": how the stream arrives at the wired interface.
struct Measurement
{
    bool present = false; ///< a datagram came within the last second; otherwise the values below are 0
    std::int32_t bitRate = 0; ///< bits per second of whole Ethernet frames, last closed period of about 1 s
    std::int32_t delayFactorMs = 0; ///< milliseconds, last closed period
    std::int32_t continuityErrors = 0; ///< continuity-counter errors, last closed period
    std::int32_t packetSize = 0; ///< bytes: 188, 204, or 0 when the datagram holds no whole packets
    std::int32_t packetsPerDatagram = 0; ///< TS packets in the last datagram
    std::int32_t constant = 0; ///< always 10
};

/// Seven signed 32-bit values, least significant byte first. Throws AnswerError unless `bytes` are 28 bytes
/// whose first value is 0 or 1.
Measurement decodeMeasurement(const std::string& bytes);

/// Bytes of a whole Ethernet frame with a datagram like the last one: with the headers of Ethernet, IPv4, UDP
/// and, with `rtp`, RTP. Nothing when the datagram holds no whole packets.
std::optional<std::int64_t> frameBytes(const Measurement& measurement, bool rtp);

/// Bits per second of the transport stream itself, in packets of 188 bytes, as far as all datagrams of the
/// period were like the last one: the bit rate without the headers of Ethernet, IPv4, UDP and, with `rtp`,
/// RTP, and without the parity of packets of 204 bytes. Nothing when the datagram holds no whole packets.
std::optional<std::int64_t> transportRate(const Measurement& measurement, bool rtp);

/// The answer to "getiat?", such as "998;1002;1000;": microseconds between frames, oldest first. Throws
/// AnswerError for anything but decimal numbers, each with its semicolon.
std::vector<std::int64_t> parseInterArrivalTimes(const std::string& text);

/// The daemon's first frame ever has no predecessor: its record holds the time since 1970 instead of an
/// interval. Takes such records out and returns how many there were.
std::size_t removeAbsoluteTimes(std::vector<std::int64_t>& times);

/// Figures of a list of inter-arrival times, all in microseconds.
struct InterArrivalStatistics
{
    std::size_t count = 0;
    std::int64_t shortest = 0;
    std::int64_t longest = 0;
    double mean = 0;
    double deviation = 0; ///< standard deviation
    std::int64_t median = 0;
    std::int64_t percentile95 = 0;
    std::int64_t percentile99 = 0;
};

InterArrivalStatistics statisticsOf(std::vector<std::int64_t> times);

/// One bar of a histogram: values from `from` up to, not including, `to`.
struct HistogramBin
{
    std::int64_t from = 0;
    std::int64_t to = 0;
    std::size_t count = 0;
    bool outliers = false; ///< the last bar, when it is wider than the others
};

/// `bins` bars of equal, whole width over the values (fewer bars when the values span fewer microseconds);
/// empty without values. When a few values are far beyond all others, the last bar holds these, so that they
/// do not squeeze the rest into one.
std::vector<HistogramBin> histogramOf(const std::vector<std::int64_t>& times, std::size_t bins);

} // namespace tessary::client
