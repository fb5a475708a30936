// The capture callback: frames with any bytes, lengths and time stamps.
//
// Input: transport (1 byte), then frames: flags (1), captured length (2), then by flag 1 the length on the
// wire (4, else as captured), by flag 2 a time stamp (8 + 4, else microseconds since the frame before, 4),
// the bytes. Flag 4: the UDP length field is made to fit the captured bytes.
#include "measure/ethernetmeasurement.h"
#include "support/input.h"
#include "support/quiet.h"

#include <new>
#include <QtGlobal>

namespace {

constexpr std::size_t maxRecords = 1024;
constexpr std::size_t udpLengthOffset = 38;
constexpr std::size_t ipHeaders = 34;

/// Time stamp of the next frame. Sums wrap: what a clock may not show is part of the input.
timeval timeStamp(Input& input, bool absolute, timeval before)
{
    if (absolute) {
        before.tv_sec = static_cast<time_t>(input.number(8));
        before.tv_usec = static_cast<std::int32_t>(input.number(4));
        return before;
    }
    const auto later = static_cast<std::uint64_t>(before.tv_usec) + input.number(4);
    before.tv_sec = static_cast<time_t>(static_cast<std::uint64_t>(before.tv_sec) + later / 1000000);
    before.tv_usec = static_cast<suseconds_t>(later % 1000000);
    return before;
}

void fitUdpLength(std::vector<std::uint8_t>& frame)
{
    if (frame.size() < udpLengthOffset + 2)
        return;
    const std::size_t length = frame.size() - ipHeaders;
    frame[udpLengthOffset] = static_cast<std::uint8_t>(length >> 8);
    frame[udpLengthOffset + 1] = static_cast<std::uint8_t>(length);
}

void check(ETHERNETMeasurement& measurement)
{
    std::vector<pcap_measured_value_struct> records;
    measurement.getBuffer(&records);
    FUZZ_REQUIRE(records.size() <= maxRecords);
    for (const pcap_measured_value_struct& record : records)
        FUZZ_REQUIRE(record.bufferBefore >= 0 && record.bufferAfter >= record.bufferBefore);
    std::vector<int> values;
    measurement.getMeasure(&values);
    FUZZ_REQUIRE(values.size() == 7 && values[6] == 10);
    FUZZ_REQUIRE(values[4] == 0 || values[4] == 188 || values[4] == 204);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    startQuietly();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    receptionStatistics.~ReceptionStatistics(); // each input begins anew
    new (&receptionStatistics) ReceptionStatistics;
    ETHERNETMeasurement measurement;

    Input input(bytes, size);
    measurement.protocol = static_cast<protocol>(input.byte() & 3U);
    pcap_pkthdr header{};
    header.ts.tv_sec = 1700000000;
    while (!input.empty()) {
        const unsigned flags = input.byte();
        const std::size_t wanted = input.number(2);
        const auto onTheWire = static_cast<bpf_u_int32>(flags & 1U ? input.number(4) : wanted);
        header.ts = timeStamp(input, (flags & 2U) != 0, header.ts);
        std::vector<std::uint8_t> frame = input.bytes(wanted);
        header.caplen = static_cast<bpf_u_int32>(frame.size());
        header.len = onTheWire;
        if (flags & 4U)
            fitUdpLength(frame);
        ETHERNETMeasurement::onPacketReceived(
            reinterpret_cast<unsigned char*>(&measurement), &header, frame.data());
    }
    check(measurement);
    return 0;
}
