// T2-MI extraction: transport stream packets with any bytes, or T2-MI packets with any payload.
//
// Input: form (1 byte), PID (2), PLP (1), size of the pushed chunks (1), then by form
//   0: the received bytes as they stand;
//   1: T2-MI packets: type (1), payload length (2), payload; each gets its header and its right CRC-32, and
//      all of them their transport stream packets;
//   2: baseband frames: MATYPE, UPL, DFL, SYNC, SYNCD (9), mode (1), data length (2), data; with a right
//      CRC-8 each, in T2-MI packets as above.
#include "t2mi/extractor.h"

#include "client/crc32.h"
#include "support/containment.h"
#include "support/input.h"
#include "t2mi/crc.h"

using namespace tessary;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t packetBytes = 188;
constexpr std::size_t longestPayload = 8191; // what payload_len can tell in whole bytes
constexpr std::size_t manyPackets = 4000; // behind it deleted null packets only fill memory

void append(Bytes& to, const Bytes& from)
{
    to.insert(to.end(), from.begin(), from.end());
}

/// Header, payload and CRC-32 (ETSI TS 102 773, 5.1).
Bytes t2miPacket(std::uint8_t type, std::uint8_t count, const Bytes& payload)
{
    const std::size_t bits = payload.size() * 8;
    Bytes packet{type, count, 0, 0, static_cast<std::uint8_t>(bits >> 8), static_cast<std::uint8_t>(bits)};
    append(packet, payload);
    const std::uint32_t crc = tessary::client::crc32Mpeg(packet.data(), packet.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        packet.push_back(static_cast<std::uint8_t>(crc >> shift));
    return packet;
}

/// The prefix of the packet, BBHEADER with its CRC-8 (ETSI EN 302 755, 5.1.7) and data field.
Bytes basebandFrame(Input& input, std::uint8_t plp)
{
    Bytes frame{0, plp, 0x80};
    Bytes header = input.bytes(9);
    header.resize(9);
    const auto mode = static_cast<std::uint8_t>(input.byte() & 1U);
    header.push_back(static_cast<std::uint8_t>(t2mi::crc8(header.data(), 9) ^ mode));
    append(frame, header);
    append(frame, input.bytes(input.number(2) % (longestPayload - frame.size() + 1)));
    return frame;
}

/// Transport stream packets of the PID that carry one T2-MI packet, stuffed to its end by the adaptation
/// field.
void carry(const Bytes& t2mi, int pid, unsigned& counter, Bytes& stream)
{
    for (std::size_t at = 0; at < t2mi.size();) {
        const bool first = at == 0;
        const std::size_t room = packetBytes - 4 - (first ? 1 : 0);
        const std::size_t count = std::min(room, t2mi.size() - at);
        const std::size_t stuffing = room - count;
        append(stream,
            {0x47, static_cast<std::uint8_t>((first ? 0x40 : 0) | (pid >> 8 & 0x1F)),
                static_cast<std::uint8_t>(pid),
                static_cast<std::uint8_t>((stuffing ? 0x30U : 0x10U) | counter)});
        counter = (counter + 1) & 0x0FU;
        if (stuffing > 0)
            stream.push_back(static_cast<std::uint8_t>(stuffing - 1));
        if (stuffing > 1)
            stream.push_back(0);
        if (stuffing > 2)
            stream.insert(stream.end(), stuffing - 2, 0xFF);
        if (first)
            stream.push_back(0); // pointer_field
        stream.insert(stream.end(), t2mi.begin() + static_cast<std::ptrdiff_t>(at),
            t2mi.begin() + static_cast<std::ptrdiff_t>(at + count));
        at += count;
    }
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
        carry(t2miPacket(type, static_cast<std::uint8_t>(count), payload), pid, counter, stream);
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
    FUZZ_REQUIRE(last.empty() || tessary::client::crc32Mpeg(last.data(), last.size()) == 0);
    FUZZ_REQUIRE(form == 0 || received.empty() || extractor.t2miCounters().crcErrors == 0);
    return 0;
}
