// What a stream may carry to end the process: tables whose lengths lead out of their section, sound in channels that
// nobody knows.
#include "boundcalls.h"
#include "kit/packets.h"
#include "kit/sections.h"
#include "media/filesource.h"
#include "pesstart.h"
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

/// A program with Opus sound (registration "Opus"), whose DVB extension descriptor is as given.
Bytes opusProgram(const Bytes& extension)
{
    Bytes body{0xE1, 0x01}; // PCR_PID
    append(body, makeLoop({}));
    append(body, {0x06, 0xE1, 0x01}); // private data
    append(
        body, makeLoop(join({makeDescriptor(0x05, {'O', 'p', 'u', 's'}), makeDescriptor(0x7F, extension)})));
    return makeSection(0x02, 1, body);
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

    /// Plays program 1 of a recording until another PAT behind the stream has come, and to the end of its threads.
    void play(const Bytes& stream)
    {
        const ScratchFolder folder;
        const std::string path = folder.file("hostile.ts");
        unsigned counter = 0;
        const Bytes first = packetsOf(0, makePat({1}), counter);
        writeBytes(path,
            join({nullPackets(20), first, stream, packetsOf(0, makePat({1, 2}, 1), counter),
                nullPackets(2000)}));
        hold(new filesource(path));
        source().play(1);
        EXPECT_TRUE(eventually([&] { return *source().getPAT() == makePat({1, 2}, 1); }));
        hold(nullptr);
    }

    static void expectOurs(const char* function)
    {
        EXPECT_EQ(boundcalls::objectThatAnswers(function), boundcalls::program());
        const std::vector<boundcalls::Call> calls = boundcalls::of(function);
        EXPECT_FALSE(calls.empty()); // otherwise the daemon's own is not needed any more
        for (const boundcalls::Call& call : calls)
            EXPECT_EQ(call.callee, boundcalls::program()) << "from " << call.caller;
    }
};

TEST_F(HostileStream, AnEventTableWhoseLengthsLeadOutOfItIsNotFollowed)
{
    for (const unsigned loopLength : {0x00CU, 0x00BU, 0x00DU, 0x800U, 0xFFFU}) {
        for (const std::uint8_t descriptorLength : Bytes{0x00, 0x0A, 0x0B, 0xFF})
            scan(0x12, eventInformation(loopLength, descriptorLength));
    }
}

TEST_F(HostileStream, OpusSoundInUnknownChannelsDoesNotEndPlaying)
{
    std::vector<Bytes> extensions{{0x80}}; // says nothing about channels
    for (const std::uint8_t code :
        Bytes{0x00, 0x08, 0x09, 0x0F, 0x10, 0x18, 0x28, 0x78, 0x7F, 0x80, 0x81, 0x88, 0x89, 0xFF})
        extensions.push_back({0x80, code});
    for (const Bytes& extension : extensions)
        play(packetsOf(0x100, opusProgram(extension)));
}

/// A program with MPEG sound, whose clock reference never comes.
Bytes soundProgram(std::uint8_t version)
{
    Bytes body{0xE1, 0x50}; // PCR_PID
    append(body, makeLoop({}));
    append(body, {0x03, 0xE1, 0x01});
    append(body, makeLoop({}));
    return makeSection(0x02, 1, body, {0, 0, version});
}

TEST_F(HostileStream, SoundThatBeginsWithoutATimeStampDoesNotEndPlaying)
{
    unsigned counter = 0;
    unsigned pmtCounter = 0;
    const auto sound = [&](const std::vector<Bytes>& headers) {
        Bytes packets;
        for (const Bytes& header : headers)
            append(packets, pesStart(0x101, counter++, header));
        return packets;
    };
    const auto pmt = [&](std::uint8_t version) {
        return packetsOf(0x100, soundProgram(version), pmtCounter);
    };
    const std::vector<Bytes> hostile{untimedPes, timedPes, timedPes, timedPes, timedPes};
    play(join({pmt(0), sound(hostile)}));
    // The program begins anew, with a stream of which data had come.
    play(join({pmt(2), sound({timedPes, timedPes}), pmt(3), sound(hostile)}));
}

// GStreamer's parsers call the library by name: whose function it is that they get is looked up where their calls go.
TEST_F(HostileStream, NoObjectOfTheProcessFindsDescriptorsByTheLibrarysFunction)
{
    play(packetsOf(0x100, opusProgram({0x80, 0x10}))); // a call is bound when it is made for the first time
    expectOurs("gst_mpegts_find_descriptor");
}

// The library's parser of event tables follows some lengths out of them, which need not show: whose parser it
// is that GStreamer calls is looked up where its calls go.
TEST_F(HostileStream, NoObjectOfTheProcessCallsTheLibrarysParserOfEventTables)
{
    scan(0x12, eventInformation(0x00C, 0x0A)); // a call is bound when it is made for the first time
    expectOurs("gst_mpegts_section_get_eit");
}

} // namespace
