#pragma once

#include "system/mydata.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <limits>
#include <optional>
#include <pcap/pcap.h>

/// Arrival record of one captured frame.
struct pcap_measured_value_struct
{
    std::int64_t timestamp; ///< capture time, µs since the epoch
    std::int64_t interArrival; ///< µs since the previous frame
    std::int64_t length; ///< bytes on the wire, Ethernet header included (not the captured bytes)
    std::int64_t bufferBefore; ///< virtual-buffer level before this frame, bits
    std::int64_t bufferAfter; ///< virtual-buffer level with this frame, bits
};

/// How a datagram's payload divides into transport stream packets (ISO/IEC 13818-1: 188 bytes; 204 with the
/// outer code's parity, ETSI EN 300 744).
struct TsPacketLayout
{
    std::int32_t size; ///< 188, 204, or 0 when the payload is a multiple of neither
    std::int32_t count; ///< packets that the payload length holds, captured or not
};

/// Results of a period that has just been closed.
struct ReceptionPeriod
{
    std::int64_t bitrate; ///< bits per second, of whole frames
    std::int64_t delayFactorMs; ///< span of the virtual buffer in milliseconds of stream, at least 1
    std::int64_t discontinuities; ///< continuity errors
};

/// What one frame gives.
struct FrameMeasurement
{
    pcap_measured_value_struct record;
    TsPacketLayout layout;
    std::optional<ReceptionPeriod> closedPeriod; ///< present when this frame closed a period
};

/// Running statistics of the received stream, fed with one captured frame after another. No function
/// allocates or blocks. Threads: one thread feeds; only `LastReceivedPacketTime` may be read by others
/// meanwhile.
class ReceptionStatistics
{
public:
    /// Takes in a frame: an untagged Ethernet header, an IPv4 header without options and UDP are assumed, not
    /// checked. No byte at or beyond `header.caplen` is read, whatever the length fields say; sizes and
    /// counts that are reported come from the UDP length all the same.
    FrameMeasurement addFrame(protocol transport, const pcap_pkthdr& header, const unsigned char* frame);

    std::int64_t oldTimestamp = 0; ///< time stamp of the previous frame, µs
    std::int64_t dt = 0; ///< µs accumulated in the current period
    std::int64_t NbBitsRecu = 0; ///< bits received in the current period
    /// Bit rate of the last closed period, bits per second; drains the virtual buffer.
    std::int64_t bitrate = 0;
    std::int64_t VBmax = 0; ///< highest level with a frame in the current period, bits
    std::int64_t VBmin = noLevel; ///< lowest level before a frame in the current period, bits
    std::uint32_t NbPaquetTS = 0; ///< TS packets examined in the current period; counted, never reported
    std::int32_t NbDiscontinuedPaquetTS = 0; ///< continuity errors in the current period
    std::atomic<std::time_t> LastReceivedPacketTime{0}; ///< wall-clock second of the last frame
    std::array<std::uint8_t, 8192>
        tab_continuity_counter{}; ///< by PID; bit 7: seen, bits 0-3: last continuity counter

private:
    static constexpr std::int64_t noLevel = std::numeric_limits<std::int32_t>::max();

    pcap_measured_value_struct recordArrival(const pcap_pkthdr& header);
    void examinePackets(const unsigned char* packets, std::size_t length, std::int32_t packetSize);
    /// Once a second: apart from the code that every frame takes.
    [[gnu::cold]] [[gnu::noinline]] ReceptionPeriod closePeriod();
};

/// The statistics of this process, shared by all measurement objects. Neither a new stream nor a restart of
/// the capture resets them: a running period and the continuity table carry on.
extern ReceptionStatistics receptionStatistics;
