// The least that a capture with the measurement's settings can do: pcap_loop, and a callback that counts.
#include "probe.h"

#include <cstdio>
#include <pcap/pcap.h>
#include <thread>
#include <unistd.h>

namespace {

unsigned long frames = 0;

void count(unsigned char*, const pcap_pkthdr*, const unsigned char*)
{
    ++frames;
}

pcap_t* openCapture(const char* filter)
{
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap_t* handle = pcap_create("eth0", error);
    if (!handle)
        return nullptr;
    pcap_set_tstamp_type(handle, PCAP_TSTAMP_ADAPTER_UNSYNCED);
    pcap_set_tstamp_precision(handle, PCAP_TSTAMP_PRECISION_MICRO);
    pcap_set_timeout(handle, 100); // ms
    pcap_set_immediate_mode(handle, 1);
    bpf_program program{};
    if (pcap_activate(handle) < 0 || pcap_compile(handle, &program, filter, 0, 0) < 0
        || pcap_setfilter(handle, &program) < 0) {
        std::fprintf(stderr, "capture-counter: %s\n", pcap_geterr(handle));
        pcap_close(handle);
        return nullptr;
    }
    pcap_freecode(&program);
    return handle;
}

} // namespace

int main(int argc, char** argv)
{
    pcap_t* handle = openCapture(argc > 1 ? argv[1] : "host 239.0.0.1 && port 1234");
    if (!handle) {
        std::fputs("capture-counter: no capture on eth0; run it as root where eth0 is up\n", stderr);
        return 1;
    }
    std::thread loop([handle] { pcap_loop(handle, -1, count, nullptr); });
    const CpuTime begin = cpuTime();
    readyUntilInputEnds();
    pcap_stat counts{};
    pcap_stats(handle, &counts);
    const CpuTime end = cpuTime();
    pcap_breakloop(handle);
    loop.join();
    pcap_close(handle);
    std::printf("{\"frames\": %lu, \"dropped\": %u, \"user\": %.6f, \"system\": %.6f}\n", frames,
        counts.ps_drop, end.user - begin.user, end.system - begin.system);
    return 0;
}
