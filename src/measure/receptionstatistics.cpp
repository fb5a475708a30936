#include "measure/receptionstatistics.h"

#include "measure/clampedmath.h"

#include <algorithm>
#include <QtEndian>
#include <utility>

ReceptionStatistics receptionStatistics;

namespace {

constexpr std::int64_t microsecondsPerSecond = 1000000;
constexpr std::size_t udpLengthOffset = 14 + 20 + 4; // Ethernet, IPv4, ports
constexpr std::size_t udpPayloadOffset = 14 + 20 + 8;
constexpr int udpHeaderSize = 8;
constexpr int rtpHeaderSize = 12; // RFC 3550, without CSRC list and extension
constexpr unsigned nullPacketPid = 8191;
constexpr std::uint8_t seen = 0x80;

/// Place of the transport stream packets in a frame.
struct Payload
{
    std::size_t offset; ///< from the frame's first byte
    int length; ///< by the UDP length field; negative when that is shorter than the headers
};

Payload locatePayload(protocol transport, const unsigned char* frame, std::size_t captured)
{
    int udpLength = 0; // of a frame that was not captured so far
    if (captured >= udpLengthOffset + 2)
        udpLength = frame[udpLengthOffset] << 8 | frame[udpLengthOffset + 1];
    switch (transport) {
    case protocolUdp:
    case protocolUdpT2mi:
        return {udpPayloadOffset, udpLength - udpHeaderSize};
    case protocolRtp:
    case protocolRtpT2mi:
        return {udpPayloadOffset + rtpHeaderSize, udpLength - udpHeaderSize - rtpHeaderSize};
    }
    return {udpPayloadOffset, 0};
}

/// A negative length is a multiple of neither size: it can be −20 at the least.
TsPacketLayout layoutOf(int payloadLength)
{
    if (payloadLength % 188 == 0)
        return {188, payloadLength / 188};
    if (payloadLength % 204 == 0)
        return {204, payloadLength / 204};
    return {0, 0};
}

/// Continuity rule: the counter of a packet with payload is its PID's last one plus 1, modulo 16. A repeated
/// packet is an error here, on purpose, although ISO/IEC 13818-1 allows one repetition. The sync byte is not
/// looked at.
bool breaksContinuity(std::array<std::uint8_t, 8192>& counters, const unsigned char* packet)
{
    const unsigned header = qFromBigEndian<quint32>(packet);
    const unsigned pid = header >> 8 & 0x1fff;
    const unsigned counter = header & 0x0f;
    const unsigned last = std::exchange(counters[pid], static_cast<std::uint8_t>(counter | seen));
    if ((last + 1) % 16 == counter || !(last & seen) || pid == nullPacketPid)
        return false;
    const unsigned adaptationFieldControl = header >> 4 & 3;
    const bool discontinuityIndicator = packet[5] & 0x80;
    return adaptationFieldControl == 1 || (adaptationFieldControl == 3 && !discontinuityIndicator);
}

} // namespace

/// One piece of code without a call: between two frames the kernel works, and the processor has to find again each
/// line of code that a frame takes.
[[gnu::flatten]] FrameMeasurement ReceptionStatistics::addFrame(
    protocol transport, const pcap_pkthdr& header, const unsigned char* frame)
{
    FrameMeasurement result{};
    result.record = recordArrival(header);
    const std::size_t captured = header.caplen;
    const Payload payload = locatePayload(transport, frame, captured);
    result.layout = layoutOf(payload.length);
    if (result.layout.count > 0 && captured > payload.offset) {
        const std::size_t readable =
            std::min(static_cast<std::size_t>(payload.length), captured - payload.offset);
        examinePackets(frame + payload.offset, readable, result.layout.size);
    }
    if (dt > microsecondsPerSecond)
        result.closedPeriod = closePeriod();
    return result;
}

pcap_measured_value_struct ReceptionStatistics::recordArrival(const pcap_pkthdr& header)
{
    pcap_measured_value_struct record{};
    record.timestamp =
        clampedAdd(clampedScale(header.ts.tv_sec, microsecondsPerSecond, 1), header.ts.tv_usec);
    record.interArrival = clampedSubtract(record.timestamp, oldTimestamp);
    record.length = header.len;
    oldTimestamp = record.timestamp;

    const std::int64_t bits = record.length * 8;
    const std::int64_t drained = clampedScale(dt, bitrate, microsecondsPerSecond);
    record.bufferBefore = std::max<std::int64_t>(clampedSubtract(NbBitsRecu, drained), 0);
    record.bufferAfter = clampedAdd(record.bufferBefore, bits);
    VBmax = std::max(VBmax, record.bufferAfter);
    VBmin = std::min(VBmin, record.bufferBefore);

    dt = clampedAdd(dt, record.interArrival);
    NbBitsRecu = clampedAdd(NbBitsRecu, bits);
    return record;
}

/// Whole packets only: the end of a packet that was not captured is not guessed. What is counted is added up at the
/// end, for the stores to the table could change any member, as far as the compiler knows.
void ReceptionStatistics::examinePackets(
    const unsigned char* packets, std::size_t length, std::int32_t packetSize)
{
    const std::size_t step = static_cast<std::size_t>(packetSize);
    std::uint32_t examined = 0;
    std::int64_t discontinued = NbDiscontinuedPaquetTS;
    for (std::size_t end = step; end <= length; end += step, ++examined)
        discontinued += breaksContinuity(tab_continuity_counter, packets + end - step) ? 1 : 0;
    NbPaquetTS += examined;
    NbDiscontinuedPaquetTS = static_cast<std::int32_t>(
        std::min<std::int64_t>(discontinued, std::numeric_limits<std::int32_t>::max()));
}

ReceptionPeriod ReceptionStatistics::closePeriod()
{
    bitrate = clampedScale(NbBitsRecu, microsecondsPerSecond, dt);
    ReceptionPeriod period{bitrate, 1, NbDiscontinuedPaquetTS};
    if (bitrate > 0)
        period.delayFactorMs =
            std::max<std::int64_t>(clampedScale(clampedSubtract(VBmax, VBmin), 1000, bitrate), 1);
    VBmin = noLevel;
    VBmax = 0;
    dt = 0;
    NbBitsRecu = 0;
    NbPaquetTS = 0;
    NbDiscontinuedPaquetTS = 0;
    return period; // `bitrate` stays: it drains the buffer of the next period
}
