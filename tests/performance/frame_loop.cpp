// Hands frames to the capture's callback, for a tool that counts instructions: frame-loop FRAMES
#include "measure/ethernetmeasurement.h"
#include "streamframes.h"

#include <cstdio>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv)
{
    const long count = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 50000;
    const auto frames = streamFrames(FrameOptions{});
    FrameRing ring(frames);
    std::thread([] {}).join(); // a process that never had a second thread has cheaper locks than the daemon
    ETHERNETMeasurement measurement;
    pcap_pkthdr header{};
    header.ts.tv_sec = 1600000000;
    header.caplen = header.len = static_cast<bpf_u_int32>(frames[0].size());
    for (long i = 0; i < count; ++i) {
        header.ts.tv_usec += 10; // 100,000 a second
        if (header.ts.tv_usec >= 1000000) {
            header.ts.tv_usec -= 1000000;
            ++header.ts.tv_sec;
        }
        ETHERNETMeasurement::onPacketReceived(
            reinterpret_cast<unsigned char*>(&measurement), &header, ring.next());
    }
    std::printf("%ld frames, %zu records\n", count, measurement.buffer->size());
    return 0;
}
