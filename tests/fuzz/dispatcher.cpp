// The dispatcher: bursts of any bytes through the real poll cycle, burst splitting, command table and
// handlers.
//
// Input: surroundings (1 byte, see below), then what the controller sends. Not real are the serial line, the
// shell and the programs behind it, the interface's state, the DAB receiver's socket and the passing of time.
#include "app/worker.h"
#include "link/serialport.h"
#include "measure/ethernetmeasurement.h"
#include "media/gstsource.h"
#include "support/containment.h"
#include "support/fakeline.h"
#include "support/fakemachine.h"
#include "support/fakereceiver.h"
#include "support/gstreamer.h"
#include "support/input.h"
#include "support/virtualtime.h"
#include "system/mydata.h"
#include "system/network.h"

#include <cstdio>
#include <QCoreApplication>

namespace {

enum Surroundings : unsigned {
    linkDown = 1, ///< the wired interface has no link
    pausesBehindLines = 2, ///< the controller waits behind each line feed
    receiverAbsent = 4, ///< the DAB receiver can not be reached at first
    receiverFails = 8, ///< it answers in pieces and takes nothing any more
    programsFail = 16, ///< programs print nothing, smcroute fails
    framesCaptured = 32, ///< the measurement has records
};

constexpr int mostCycles = 64;
constexpr std::size_t nullPackets = 100;

Worker* worker = nullptr;

void silent(QtMsgType, const QMessageLogContext&, const QString&) { }

/// A recording of null packets on the card, for the commands that read it.
void makeRecording()
{
    std::FILE* file = std::fopen("/run/media/mmcblk1p1/record.ts", "w");
    if (file == nullptr)
        return;
    const std::vector<std::uint8_t> body(184, 0xFF);
    for (std::size_t i = 0; i < nullPackets; ++i) {
        std::fwrite("\x47\x1F\xFF\x10", 1, 4, file);
        std::fwrite(body.data(), 1, body.size(), file);
    }
    std::fclose(file);
}

fakemachine::Behaviour machineOf(unsigned flags)
{
    fakemachine::Behaviour machine;
    machine.linkUp = (flags & linkDown) == 0;
    if (flags & programsFail)
        machine.programErrors = "smcroute: No such device\n";
    else
        machine.programOutput = "Settings for eth0:\n\tSpeed: 1000Mb/s\n\tLink detected: yes\n";
    return machine;
}

void captureFrames()
{
    const std::vector<unsigned char> frame(14 + 20 + 8 + 7 * 188, 0x47);
    pcap_pkthdr header{};
    header.caplen = header.len = static_cast<bpf_u_int32>(frame.size());
    for (int i = 0; i < 1024; ++i) {
        header.ts.tv_sec = 1700000000 + i;
        ETHERNETMeasurement::onPacketReceived(
            reinterpret_cast<unsigned char*>(ethMes), &header, frame.data());
    }
}

/// The daemon as it is behind its start-up.
void begin(unsigned flags)
{
    fakemachine::set(machineOf(flags));
    fakereceiver::Behaviour receiver;
    receiver.failedConnections = flags & receiverAbsent ? 2 : 0;
    receiver.shortAnswers = flags & receiverFails ? 3 : 0;
    receiver.takesBlocks = (flags & receiverFails) == 0 || (flags & receiverAbsent) == 0;
    fakereceiver::set(receiver);
    data = MyData();
    data.serverAddress = "239.0.0.1";
    data.serverPort = "1234";
    data.vlanId = "100";
    ethMes->load(protocolUdp, "host 239.0.0.1 && port 1234");
    if (flags & framesCaptured)
        captureFrames();
}

void end()
{
    if (worker->dabStarted())
        worker->stopDAB();
    gstStop();
    ethMes->stop();
    ethMes->buffer->clear();
    net.smcrouteStarted = false;
    net.joinRequested = false;
    EthernetConnected = 0;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments)
{
    requireContainment();
    qInstallMessageHandler(silent);
    prepareGStreamer();
    new QCoreApplication(*argumentCount, *arguments); // ends with the process
    makeRecording();
    const virtualtime::Scope waitsPassAtOnce;
    worker = new Worker;
    loadElements();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const virtualtime::Scope waitsPassAtOnce;
    Input input(bytes, size);
    const unsigned flags = input.byte();
    begin(flags);
    fakeline::load(input.rest(),
        (flags & pausesBehindLines) != 0 ? fakeline::Pauses::BehindLines : fakeline::Pauses::None);
    for (int cycle = 0; cycle < mostCycles && fakeline::left() > 0; ++cycle) {
        worker->doWork();
        FUZZ_REQUIRE(ReceivedBytes >= 0 && ReceivedBytes <= 640);
    }
    end();
    return 0;
}
