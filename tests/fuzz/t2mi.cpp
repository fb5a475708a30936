// T2-MI extraction: transport stream packets with any bytes, or T2-MI packets with any payload.
//
// Input: form (1 byte), PID (2), PLP (1), size of the pushed chunks (1), then by form
//   0: the received bytes as they stand;
//   1: T2-MI packets: type (1), payload length (2), payload; each gets its header and its right CRC-32, and
//      all of them their transport stream packets;
//   2: baseband frames: MATYPE, UPL, DFL, SYNC, SYNCD (9), mode (1), data length (2), data; with a right
//      CRC-8 each, in T2-MI packets as above.
#include "t2mi/extractor.h"

#include "kit/crc.h"
#include "kit/packets.h"
#include "kit/t2mi.h"
#include "support/containment.h"
#include "support/input.h"

using namespace tessary;

namespace {

using namespace tessary::test;

constexpr std::size_t longestPayload = 8191; // what payload_len can tell in whole bytes
constexpr std::size_t manyPackets = 4000; // behind it deleted null packets only fill memory

/// The prefix of the packet, BBHEADER with its CRC-8 (ETSI EN 302 755, 5.1.7) and data field.
Bytes basebandFrame(Input& input, std::uint8_t plp)
{
    Bytes frame{0, plp, 0x80};
    Bytes header = input.bytes(9);
    header.resize(9);
    const unsigned mode = input.byte() & 1U;
    header.push_back(lowByte(crc8DvbT2(header) ^ mode));
    append(frame, header);
    append(frame, input.bytes(input.number(2) % (longestPayload - frame.size() + 1)));
    return frame;
}

Bytes receivedBytes(Input& input, unsigned form, int pid, std::uint8_t plp)
{
    if (form == 0)
        return input.rest();
    Bytes stream;
    unsigned counter = 0;
    for (unsigned count = 0; !input.empty(); ++count) {
        const std::uint8_t type = form == 1 ? input.byte() : 0;
        const Bytes payload =
            form == 1 ? input.bytes(input.number(2) % (longestPayload + 1)) : basebandFrame(input, plp);
        const std::vector<Bytes> packets = tsPackets({t2miPacket(type, count, payload)}, pid, counter);
        append(stream, join(packets));
        counter += static_cast<unsigned>(packets.size());
    }
    return stream;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    requireContainment();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    const unsigned form = input.byte() % 3U;
    const int pid = static_cast<int>(input.number(2) & 0x1FFFU);
    const std::uint8_t plp = input.byte();
    const std::size_t chunk = input.byte() * 16U + 1U;
    const Bytes received = receivedBytes(input, form, pid, plp);

    t2mi::Extractor extractor(pid, plp);
    Bytes out;
    for (std::size_t at = 0; at < received.size() && out.size() < manyPackets * packetBytes; at += chunk) {
        const Bytes part(received.begin() + static_cast<std::ptrdiff_t>(at),
            received.begin() + static_cast<std::ptrdiff_t>(std::min(at + chunk, received.size())));
        extractor.push(part.data(), part.size(), out);
    }
    FUZZ_REQUIRE(out.size() % packetBytes == 0);
    for (std::size_t at = 0; at < out.size(); at += packetBytes)
        FUZZ_REQUIRE(out[at] == 0x47);
    const Bytes last = extractor.lastPacket();
    FUZZ_REQUIRE(last.empty() || crc32Mpeg2(last) == 0);
    FUZZ_REQUIRE(form == 0 || received.empty() || extractor.t2miCounters().crcErrors == 0);
    return 0;
}
