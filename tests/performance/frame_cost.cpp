// What one frame costs in the capture's callback, whole and step by step (Google Benchmark). Steps that no
// function of its own offers are the difference of two of these.
#include "measure/clampedmath.h"
#include "measure/ethernetmeasurement.h"
#include "streamframes.h"

#include <benchmark/benchmark.h>
#include <ctime>
#include <future>
#include <thread>

namespace {

/// A stream of 100,000 datagrams a second, one after another.
class Stream
{
public:
    explicit Stream(unsigned packets, bool rtp = false)
        : m_frames(streamFrames([&] {
            FrameOptions options;
            options.packets = packets;
            options.rtp = rtp;
            return options;
        }()))
    {
        header.ts.tv_sec = 1600000000;
        header.caplen = header.len = static_cast<bpf_u_int32>(m_frames[0].size());
    }

    const unsigned char* next()
    {
        header.ts.tv_usec += 10;
        if (header.ts.tv_usec >= 1000000) {
            header.ts.tv_usec -= 1000000;
            ++header.ts.tv_sec;
        }
        return m_frames[m_next++ % frameCycle].data();
    }

    pcap_pkthdr header{};

private:
    std::vector<std::vector<unsigned char>> m_frames;
    std::size_t m_next = 0;
};

void callback(benchmark::State& state, Stream& stream, ETHERNETMeasurement& measurement)
{
    auto* const self = reinterpret_cast<unsigned char*>(&measurement);
    for (int i = 0; i < 2000; ++i) // the record buffer is full, as it is after the first instant
        ETHERNETMeasurement::onPacketReceived(self, &stream.header, stream.next());
    for ([[maybe_unused]] auto _ : state) {
        const unsigned char* frame = stream.next();
        ETHERNETMeasurement::onPacketReceived(self, &stream.header, frame);
    }
}

void wholeCallback(benchmark::State& state)
{
    Stream stream(static_cast<unsigned>(state.range(0)));
    ETHERNETMeasurement measurement;
    callback(state, stream, measurement);
}

void wholeCallbackRtp(benchmark::State& state)
{
    Stream stream(static_cast<unsigned>(state.range(0)), true);
    ETHERNETMeasurement measurement;
    measurement.protocol = protocolRtp;
    callback(state, stream, measurement);
}

void wholeCallbackFromRing(benchmark::State& state)
{
    Stream stream(7);
    FrameRing ring(streamFrames(FrameOptions{}));
    ETHERNETMeasurement measurement;
    auto* const self = reinterpret_cast<unsigned char*>(&measurement);
    for ([[maybe_unused]] auto _ : state) {
        stream.next(); // the time moves on
        ETHERNETMeasurement::onPacketReceived(self, &stream.header, ring.next());
    }
}

/// A reader holds the records, so none is stored.
void callbackWithoutRecords(benchmark::State& state)
{
    Stream stream(static_cast<unsigned>(state.range(0)));
    ETHERNETMeasurement measurement;
    std::promise<void> locked;
    std::promise<void> measured;
    std::thread reader([&] {
        const MutexLock lock(measurement.bufferMutex);
        locked.set_value();
        measured.get_future().wait();
    });
    locked.get_future().wait();
    callback(state, stream, measurement);
    measured.set_value();
    reader.join();
}

void statistics(benchmark::State& state, protocol transport, bool rtp)
{
    Stream stream(static_cast<unsigned>(state.range(0)), rtp);
    ReceptionStatistics measured;
    for ([[maybe_unused]] auto _ : state) {
        const unsigned char* frame = stream.next();
        benchmark::DoNotOptimize(measured.addFrame(transport, stream.header, frame));
    }
}

void statisticsUdp(benchmark::State& state)
{
    statistics(state, protocolUdp, false);
}

void statisticsRtp(benchmark::State& state)
{
    statistics(state, protocolRtp, true);
}

/// The stream alone: its cost is taken off all others.
void streamAlone(benchmark::State& state)
{
    Stream stream(7);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(stream.next());
}

void ringAlone(benchmark::State& state)
{
    Stream stream(7);
    FrameRing ring(streamFrames(FrameOptions{}));
    for ([[maybe_unused]] auto _ : state) {
        stream.next();
        benchmark::DoNotOptimize(ring.next());
    }
}

void wallClock(benchmark::State& state)
{
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(std::time(nullptr));
}

void virtualBufferDrain(benchmark::State& state)
{
    std::int64_t dt = 0;
    std::int64_t bitrate = 1086400000;
    for ([[maybe_unused]] auto _ : state) {
        dt = (dt + 10) % 1000000;
        benchmark::DoNotOptimize(bitrate);
        benchmark::DoNotOptimize(clampedScale(dt, bitrate, 1000000));
    }
}

BENCHMARK(streamAlone);
BENCHMARK(ringAlone);
BENCHMARK(wholeCallback)->Arg(1)->Arg(7);
BENCHMARK(wholeCallbackRtp)->Arg(7);
BENCHMARK(wholeCallbackFromRing);
BENCHMARK(callbackWithoutRecords)->Arg(7);
BENCHMARK(statisticsUdp)->Arg(0)->Arg(1)->Arg(2)->Arg(4)->Arg(7);
BENCHMARK(statisticsRtp)->Arg(7);
BENCHMARK(wallClock);
BENCHMARK(virtualBufferDrain);

} // namespace

int main(int argc, char** argv)
{
    std::thread([] {}).join(); // a process that never had a second thread has cheaper locks than the daemon
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
