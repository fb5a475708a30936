// Frames that are cut short, lie about their length or are made of noise. The bytes of each stand in a block
// of exactly their number, so that the address sanitizer sees any read beyond them.
#include "frames.h"
#include "measure/ethernetmeasurement.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <random>

namespace {

constexpr protocol transports[] = {
    protocolUdp, protocolRtp, protocolUdpT2mi, protocolRtpT2mi, static_cast<protocol>(9)};
constexpr std::int64_t start = 1'700'000'000'000'000; // µs

/// In the middle of a period, so that the next frame's packets stay counted.
struct RunningStatistics : ReceptionStatistics
{
    RunningStatistics() { oldTimestamp = start; }
};

TsPacketLayout feedExactly(
    ReceptionStatistics& statistics, protocol transport, const Bytes& frame, std::size_t captured)
{
    const auto block = std::make_unique<unsigned char[]>(captured);
    std::copy_n(frame.begin(), captured, block.get());
    pcap_pkthdr header = headerOf(frame, start);
    header.caplen = static_cast<bpf_u_int32>(captured);
    return statistics.addFrame(transport, header, block.get()).layout;
}

} // namespace

TEST(HostileFrames, OfEveryLengthUpTo100BytesAreTakenWithoutReadingBeyondThem)
{
    for (std::size_t length = 0; length <= 100; ++length) {
        for (const protocol transport : transports) {
            for (const int fill : {0x00, 0x47, 0xff}) {
                RunningStatistics statistics;
                const Bytes frame(length, static_cast<unsigned char>(fill));
                feedExactly(statistics, transport, frame, length);
                EXPECT_EQ(statistics.NbPaquetTS, 0u) << length; // no room for a packet
                EXPECT_EQ(statistics.oldTimestamp, start);
            }
        }
    }
}

TEST(HostileFrames, CutBeforeTheUdpLengthHaveNoPackets)
{
    const Bytes whole = datagram(protocolUdp, Bytes(1316));
    for (std::size_t captured = 0; captured < 40; ++captured) {
        RunningStatistics statistics;
        const TsPacketLayout layout = feedExactly(statistics, protocolUdp, whole, captured);
        EXPECT_EQ(layout.size, 0) << captured;
        EXPECT_EQ(layout.count, 0) << captured;
    }
}

TEST(HostileFrames, CutAnywhereReportThePacketsOfTheUdpLengthAndExamineTheCapturedOnes)
{
    for (const protocol transport : {protocolUdp, protocolRtp}) {
        const Bytes whole = datagram(transport, Bytes(1316));
        const std::size_t headers = whole.size() - 1316;
        for (std::size_t captured = 40; captured <= whole.size(); ++captured) {
            RunningStatistics statistics;
            const TsPacketLayout layout = feedExactly(statistics, transport, whole, captured);
            EXPECT_EQ(layout.size, 188);
            EXPECT_EQ(layout.count, 7);
            EXPECT_EQ(statistics.NbPaquetTS, captured < headers ? 0 : (captured - headers) / 188) << captured;
        }
    }
}

TEST(HostileFrames, WithEveryUdpLengthStayWithinTheirBytes)
{
    Bytes frame = datagram(protocolUdp, Bytes(376));
    for (unsigned length = 0; length <= 65535; ++length) {
        setUdpLength(frame, length);
        for (const protocol transport : {protocolUdp, protocolRtp}) {
            RunningStatistics statistics;
            const TsPacketLayout layout = feedExactly(statistics, transport, frame, frame.size());
            const int payload = static_cast<int>(length) - (transport == protocolUdp ? 8 : 20);
            const int size = payload % 188 == 0 ? 188 : payload % 204 == 0 ? 204 : 0;
            ASSERT_EQ(layout.size, size) << length;
            ASSERT_EQ(layout.count, size ? payload / size : 0) << length;
            ASSERT_LE(statistics.NbPaquetTS, 2u) << length;
        }
    }
}

TEST(HostileFrames, WithAUdpLengthBelowTheHeadersHaveNoPackets)
{
    Bytes frame = datagram(protocolRtp, Bytes(1316));
    for (unsigned length = 0; length < 20; ++length) {
        setUdpLength(frame, length);
        RunningStatistics statistics;
        const TsPacketLayout layout = feedExactly(statistics, protocolRtp, frame, frame.size());
        EXPECT_EQ(layout.size, 0) << length;
        EXPECT_EQ(layout.count, 0) << length;
        EXPECT_EQ(statistics.NbPaquetTS, 0u) << length;
    }
}

namespace {

/// A good datagram with some bytes changed, cut at a random place.
Bytes mutated(std::mt19937& random, const Bytes& seed)
{
    Bytes frame = seed;
    for (std::size_t changes = random() % 6; changes > 0; --changes) {
        const std::size_t where =
            random() % 3 ? random() % frame.size() : 34 + random() % 24; // UDP, RTP, first packet
        frame[where] = static_cast<unsigned char>(random());
    }
    frame.resize(random() % 2 ? frame.size() : random() % frame.size());
    frame.shrink_to_fit(); // no room behind the captured bytes
    return frame;
}

/// Its header, with a length on the wire and a time that may be anything now and then.
pcap_pkthdr mutatedHeader(std::mt19937& random, const Bytes& frame, std::int64_t time)
{
    pcap_pkthdr header = headerOf(frame, time);
    if (random() % 4 == 0)
        header.len = static_cast<bpf_u_int32>(random());
    if (random() % 64 == 0)
        header.ts.tv_sec = static_cast<std::int64_t>(std::uint64_t(random()) << 32 | random());
    return header;
}

} // namespace

#ifdef __SANITIZE_THREAD__ // one thread, and slow: there is nothing for ThreadSanitizer to see
constexpr int mutations = 10'000;
#else
constexpr int mutations = 1'000'000;
#endif

TEST(HostileFrames, MutatedByTheMillionPassTheCallbackWithoutAFault)
{
    std::mt19937 random(20240607);
    Bytes seeds[2];
    for (const protocol transport : {protocolUdp, protocolRtp}) {
        std::vector<Bytes> packets;
        for (unsigned i = 0; i < 3; ++i)
            packets.push_back(tsPacket(100 + i, i, adaptationAndPayload));
        seeds[transport] = datagram(transport, join(packets));
    }
    ETHERNETMeasurement measurement;
    std::int64_t packets = 0;
    for (int i = 0; i < mutations; ++i) {
        const Bytes frame = mutated(random, seeds[random() % 2]);
        const pcap_pkthdr header = mutatedHeader(random, frame, start + i * 100);
        measurement.protocol = transports[random() % 5];
        ETHERNETMeasurement::onPacketReceived(
            reinterpret_cast<unsigned char*>(&measurement), &header, frame.data());
        ASSERT_GE(measurement.tsPacketsPerDatagram, 0);
        ASSERT_GE(measurement.buffer->back().bufferBefore, 0);
        packets += measurement.tsPacketsPerDatagram;
    }
    EXPECT_GT(packets, mutations / 2); // most frames still had packets to examine
    EXPECT_EQ(measurement.buffer->size(), 1024U);
}
