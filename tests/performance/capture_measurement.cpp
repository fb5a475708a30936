// The instrument's measurement on "eth0" of the network that the program is started in, full statistics and
// all.
#include "measure/ethernetmeasurement.h"
#include "probe.h"

#include <cstdio>
#include <cstdlib>
#include <QtGlobal>

namespace {

void keepQuiet(QtMsgType, const QMessageLogContext&, const QString&) { }

} // namespace

int main(int argc, char** argv)
{
    qInstallMessageHandler(keepQuiet);
    ETHERNETMeasurement measurement;
    measurement.load(protocolUdp, argc > 1 ? argv[1] : "host 239.0.0.1 && port 1234");
    measurement.start();
    if (!measurement.running) {
        std::fputs("capture-measurement: no capture on eth0; run it as root where eth0 is up\n", stderr);
        return 1;
    }
    const CpuTime begin = cpuTime();
    readyUntilInputEnds();
    std::vector<int> values;
    measurement.getMeasure(&values);
    // The ring is empty by now, so what the kernel put into it is what the callback got.
    pcap_stat counts{};
    pcap_stats(measurement.handle, &counts);
    const CpuTime end = cpuTime();
    measurement.stop();
    std::printf("{\"frames\": %u, \"dropped\": %u, \"user\": %.6f, \"system\": %.6f, \"present\": %d, "
                "\"bitrate\": %d, "
                "\"continuity_errors\": %d, \"packet_size\": %d, \"packets\": %d}\n",
        counts.ps_recv - counts.ps_drop, counts.ps_drop, end.user - begin.user, end.system - begin.system,
        values[0], values[1], values[3], values[4], values[5]);
    return 0;
}
