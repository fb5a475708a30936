// The dispatcher: bursts of any bytes through the real poll cycle, burst splitting, command table and
// handlers.
//
// Input: surroundings (1 byte, see below), then what the controller sends. Not real are the serial line, the
// shell and the programs behind it, the interface's state, the DAB receiver's socket and the passing of time.
#include "app/worker.h"
#include "kit/packets.h"
#include "kit/sections.h"
#include "link/serialport.h"
#include "measure/ethernetmeasurement.h"
#include "media/filesource.h"
#include "support/fakeline.h"
#include "support/fakemachine.h"
#include "support/fakereceiver.h"
#include "support/gstreamer.h"
#include "support/input.h"
#include "support/quiet.h"
#include "system/mydata.h"
#include "system/network.h"
#include "tests/unit/support/virtualtime.h"

#include <cstdio>
#include <poll.h>

namespace {

using namespace tessary::test;

enum Surroundings : unsigned {
    linkDown = 1, ///< the wired interface has no link
    pausesBehindLines = 2, ///< the controller waits behind each line feed
    receiverAbsent = 4, ///< the DAB receiver can not be reached at first
    receiverFails = 8, ///< it answers in pieces and takes nothing any more
    programsFail = 16, ///< programs print nothing, smcroute fails
    framesCaptured = 32, ///< the measurement has records
    tablesKnown = 64, ///< the recording is the source, and its tables have come
};

constexpr int mostCycles = 64;
constexpr const char* recordingFile = "/run/media/mmcblk1p1/record.ts";
constexpr int mostTableWaits = 100; // of 2 ms

Worker* worker = nullptr;

/// A recording on the card, for the commands that read it: the tables of two programs, over and over.
void makeRecording()
{
    const Bytes tables = join(
        {packetsOf(0, makePat({0, 1, 2})), packetsOf(0x101, makePmt(1)), packetsOf(0x102, makePmt(2, 0x300)),
            packetsOf(0x10, makeNit(0, "Desk network")), packetsOf(0x11, makeSdt({1, 2}, 60))});
    std::FILE* file = std::fopen(recordingFile, "w");
    if (file == nullptr)
        return;
    for (int i = 0; i < 20; ++i)
        std::fwrite(tables.data(), 1, tables.size(), file);
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
    for (int i = 0; i < 1000; ++i) { // not 1024: the counters of coverage are bytes, and would be 0 again
        header.ts.tv_sec = 1700000000 + i;
        ETHERNETMeasurement::onPacketReceived(
            reinterpret_cast<unsigned char*>(ethMes), &header, frame.data());
    }
}

void scanRecording()
{
    instance = new filesource(recordingFile);
    instance->scanStream();
    for (int i = 0; i < mostTableWaits && !instance->getStreamInformation(); ++i)
        poll(nullptr, 0, 2); // the tables come on the bus thread, in real time
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
    if (flags & tablesKnown)
        scanRecording();
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
    startQuietly();
    prepareGStreamer(*argumentCount, *arguments);
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
