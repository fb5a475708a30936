// What a stream may carry to end the process: tables whose lengths lead out of their section.
#include "boundcalls.h"
#include "kit/packets.h"
#include "kit/sections.h"
#include "media/filesource.h"
#include "sourcetest.h"

namespace {

using namespace tessary::test;

/// An event information section (ETSI EN 300 468, 5.2.4) with one event, whose descriptors_loop_length and
/// whose descriptor's length are as given.
Bytes eventInformation(unsigned loopLength, std::uint8_t descriptorLength)
{
    Bytes body{0x00, 0x01, 0x00, 0x01, 0x00, 0x4E}; // transport stream, network, last segment and table
    const Bytes event{0x21, 0x17, 0xE0, 0xC0, 0x12, 0x00, 0x00, 0x01, 0x00, 0x00};
    append(body, event);
    append16(body, 0x8000U | loopLength);
    append(body, {0x4D, descriptorLength});
    body.resize(body.size() + 10, 0xFF);
    return makeSection(0x4E, 1, body);
}

class HostileStream : public SourceTest
{
protected:
    /// Scans a recording of the section and of a PAT behind it, to its end.
    void scan(unsigned pid, const Bytes& section)
    {
        const ScratchFolder folder;
        const std::string path = folder.file("hostile.ts");
        writeBytes(path,
            join({nullPackets(20), packetsOf(pid, section), packetsOf(0, makePat({1})), nullPackets(20)}));
        prints.forget();
        hold(new filesource(path));
        source().scanStream();
        ASSERT_TRUE(prints.waitFor("EOS\n"));
        EXPECT_EQ(*source().getPAT(), makePat({1}));
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
