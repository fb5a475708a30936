// What a stream may carry to end the process: tables whose lengths lead out of their section.
#include "boundcalls.h"
#include "madesections.h"
#include "media/filesource.h"
#include "sourcetest.h"

#include <fstream>

namespace {

using madesections::Bytes;

/// Whole transport stream packets of the PID that carry the section, ISO/IEC 13818-1, 2.4.4.
std::string packetsOf(unsigned pid, const Bytes& section)
{
    constexpr std::size_t payloadBytes = 184;
    std::string payload(1, '\0'); // pointer_field
    payload.append(section.begin(), section.end());
    std::string packets;
    for (std::size_t at = 0; at < payload.size(); at += payloadBytes) {
        const unsigned first = at == 0 ? 0x40U : 0U;
        packets += '\x47';
        packets += static_cast<char>(first | pid >> 8);
        packets += static_cast<char>(pid);
        packets += static_cast<char>(0x10U | (at / payloadBytes & 0x0FU));
        packets += payload.substr(at, payloadBytes);
        packets.resize((at / payloadBytes + 1) * 188, '\xFF');
    }
    return packets;
}

/// An event information section (ETSI EN 300 468, 5.2.4) with one event, whose descriptors_loop_length and
/// whose descriptor's length are as given.
Bytes eventInformation(unsigned loopLength, std::uint8_t descriptorLength)
{
    Bytes body{0x00, 0x01, 0x00, 0x01, 0x00, 0x4E}; // transport stream, network, last segment and table
    const Bytes event{0x21, 0x17, 0xE0, 0xC0, 0x12, 0x00, 0x00, 0x01, 0x00, 0x00};
    body.insert(body.end(), event.begin(), event.end());
    body.push_back(static_cast<std::uint8_t>(0x80U | loopLength >> 8));
    body.push_back(static_cast<std::uint8_t>(loopLength));
    body.push_back(0x4D);
    body.push_back(descriptorLength);
    body.resize(body.size() + 10, 0xFF);
    return madesections::section(0x4E, 1, body);
}

/// So many that the parser finds the step of the packets.
std::string nullPackets()
{
    std::string packet("\x47\x1F\xFF\x10");
    packet.resize(188, '\xFF');
    std::string packets;
    for (int i = 0; i < 20; ++i)
        packets += packet;
    return packets;
}

class HostileStream : public SourceTest
{
protected:
    /// Scans a recording of the section and of a PAT behind it, to its end.
    void scan(unsigned pid, const Bytes& section)
    {
        const ScratchFolder folder;
        const std::string path = folder.file("hostile.ts");
        std::ofstream(path, std::ios::binary) << nullPackets() << packetsOf(pid, section)
                                              << packetsOf(0, madesections::pat({1})) << nullPackets();
        prints.forget();
        hold(new filesource(path));
        source().scanStream();
        ASSERT_TRUE(prints.waitFor("EOS\n"));
        EXPECT_EQ(*source().getPAT(), madesections::pat({1}));
    }
};

TEST_F(HostileStream, AnEventTableWhoseLengthsLeadOutOfItIsNotFollowed)
{
    for (const unsigned loopLength : {0x00CU, 0x00BU, 0x00DU, 0x800U, 0xFFFU}) {
        for (const std::uint8_t descriptorLength : Bytes{0x00, 0x0A, 0x0B, 0xFF})
            scan(0x12, eventInformation(loopLength, descriptorLength));
    }
}

// The library's parser of event tables follows some lengths out of them, which need not show: whose parser it
// is that GStreamer calls is looked up where its calls go.
TEST_F(HostileStream, NoObjectOfTheProcessCallsTheLibrarysParserOfEventTables)
{
    scan(0x12, eventInformation(0x00C, 0x0A)); // a call is bound when it is made for the first time
    const char parser[] = "gst_mpegts_section_get_eit";
    EXPECT_EQ(boundcalls::objectThatAnswers(parser), boundcalls::program());
    const std::vector<boundcalls::Call> calls = boundcalls::of(parser);
    EXPECT_FALSE(calls.empty()); // otherwise the daemon's own is not needed any more
    for (const boundcalls::Call& call : calls)
        EXPECT_EQ(call.callee, boundcalls::program()) << "from " << call.caller;
}

} // namespace
