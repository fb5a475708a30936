// Whole recordings as datagrams: the errors of all periods together are those of a strict reading of the
// file.
#include "frames.h"
#include "kit/samples.h"
#include "measure/receptionstatistics.h"

#include <gtest/gtest.h>

namespace {

struct Recording
{
    const char* file;
    std::size_t packetSize; ///< bytes
    std::int64_t packets;
    std::int64_t errors; ///< strict rule: every packet with payload continues its PID's last counter
};

void PrintTo(const Recording& recording, std::ostream* out)
{
    *out << recording.file;
}

struct Totals
{
    std::int64_t packets = 0;
    std::int64_t errors = 0;
};

/// Sends the file seven packets at a time, a datagram every 1.4 ms, and closes the last period.
Totals measure(const Bytes& stream, std::size_t packetSize, protocol transport)
{
    ReceptionStatistics statistics;
    Totals totals;
    std::int64_t now = 1'700'000'000'000'000;
    const auto feed = [&](const Bytes& payload) {
        const Bytes frame = datagram(transport, payload);
        const FrameMeasurement result = statistics.addFrame(transport, headerOf(frame, now), frame.data());
        EXPECT_EQ(result.layout.count, payload.size() / packetSize);
        totals.packets += result.layout.count;
        if (result.closedPeriod)
            totals.errors += result.closedPeriod->discontinuities;
        now += 1400;
    };
    for (std::size_t begin = 0; begin < stream.size(); begin += 7 * packetSize) {
        const std::size_t end = std::min(begin + 7 * packetSize, stream.size());
        feed(Bytes(stream.begin() + static_cast<std::ptrdiff_t>(begin),
            stream.begin() + static_cast<std::ptrdiff_t>(end)));
    }
    now += 1'000'000;
    feed({});
    return totals;
}

class RecordedStream : public ::testing::TestWithParam<Recording>
{
};

} // namespace

TEST_P(RecordedStream, ErrorsOfAllPeriodsAreThoseOfTheFile)
{
    const Recording& recording = GetParam();
    const Bytes stream = bytesOfSample(recording.file);
    if (stream.empty())
        GTEST_SKIP() << missingSample(recording.file);
    for (const protocol transport : {protocolUdp, protocolRtp}) {
        const Totals totals = measure(stream, recording.packetSize, transport);
        EXPECT_EQ(totals.packets, recording.packets) << "transport " << transport;
        EXPECT_EQ(totals.errors, recording.errors) << "transport " << transport;
    }
}

INSTANTIATE_TEST_SUITE_P(Broadcasts, RecordedStream,
    ::testing::Values(Recording{"franceinfo-cc.ts", 188, 7333, 31},
        Recording{"dup-cc-pmt.ts", 188, 12929, 333}, Recording{"cc-crafted.ts", 188, 21, 4},
        Recording{"cts-taiwan-si.ts", 188, 1566, 3}, Recording{"rai-dvbt-mux.ts", 188, 20000, 0},
        Recording{"isdbt-204-b.ts", 204, 329, 0}));
