#include "client/presentation.h"

#include "client/psi/bytes.h"
#include "client/psi/conditionalaccess.h"
#include "client/psi/streamkind.h"

#include <gtest/gtest.h>
#include <initializer_list>

namespace {

using namespace tessary::client;
using State = Presentation::State;
using Stream = ProgramMap::Stream;

constexpr std::uint8_t registrationTag = 0x05;
constexpr std::uint8_t conditionalAccessTag = 0x09;

Descriptor registration(const char* identifier)
{
    return {registrationTag, toBytes(identifier)};
}

Stream stream(std::uint8_t type, std::vector<Descriptor> descriptors = {})
{
    return {type, 0x100, std::move(descriptors)};
}

ProgramMap programOf(std::vector<Stream> streams, std::vector<Descriptor> descriptors = {})
{
    ProgramMap program;
    program.streams = std::move(streams);
    program.descriptors = std::move(descriptors);
    return program;
}

// --- what a stream is, by stream_type, its descriptors and the program's registration ---

struct Kind
{
    const char* text;
    Stream stream;
    std::vector<Descriptor> program; // descriptors
    const char* codec; // "" for what is neither picture nor sound
    StreamKind::Decoding decoding;
};

void expectKinds(std::initializer_list<Kind> kinds)
{
    for (const Kind& expected : kinds) {
        const ProgramMap program = programOf({expected.stream}, expected.program);
        const StreamKind kind = kindOf(program, program.streams[0]);
        SCOPED_TRACE(testing::Message() << "type " << int(expected.stream.type) << ", " << expected.text);
        EXPECT_EQ(kind.text, expected.text);
        EXPECT_EQ(kind.codec, expected.codec);
        EXPECT_EQ(kind.medium == StreamKind::Medium::Other, kind.codec.empty());
        EXPECT_EQ(kind.decoding, expected.decoding);
    }
}

constexpr auto told = StreamKind::Decoding::Told;
constexpr auto untold = StreamKind::Decoding::Untold;
constexpr auto never = StreamKind::Decoding::Never;

TEST(KindOf, GoesByTheStreamType)
{
    expectKinds({Kind{"MPEG-2 video", stream(0x02), {}, "MPEG-2", told},
        Kind{"H.264 video", stream(0x1B), {}, "H.264", told},
        Kind{"AVS video", stream(0x42), {}, "AVS", untold},
        Kind{"MPEG-1 audio", stream(0x03), {}, "MPEG audio", told},
        Kind{"AAC LATM audio", stream(0x11), {}, "AAC", told},
        Kind{"AC-3 audio (ATSC)", stream(0x81), {}, "AC-3", told},
        Kind{"DSM-CC sections", stream(0x0D), {}, "", untold},
        Kind{"type 0xee", stream(0xEE), {}, "", untold}});
}

TEST(KindOf, TellsPrivatePesApartByDescriptors)
{
    expectKinds({Kind{"private PES", stream(0x06), {}, "", untold},
        Kind{"teletext", stream(0x06, {{0x56, {}}}), {}, "", untold},
        Kind{"E-AC-3 audio", stream(0x06, {{0x52, {1}}, {0x7A, {0}}}), {}, "E-AC-3", told},
        Kind{"AC-4 audio", stream(0x06, {{0x7F, {0x15, 0}}}), {}, "AC-4", never},
        Kind{"AC-4 audio", stream(0x06, {registration("AC-4")}), {}, "AC-4", never},
        Kind{"private PES", stream(0x06, {{0x7F, {}}}), {}, "", untold},
        Kind{"private PES", stream(0x06, {{registrationTag, {'D', 'T', 'S'}}}), {}, "", untold},
        Kind{"Opus audio", stream(0x06, {registration("Opus"), {0x7F, {0x80, 2}}}), {}, "Opus", untold},
        Kind{"H.265 video", stream(0x06, {registration("HEVC")}), {}, "H.265", told},
        Kind{"H.264 video", stream(0x1B, {registration("AC-4")}), {}, "H.264", told}});
}

TEST(KindOf, KnowsTheNewerStreamTypes)
{
    expectKinds({Kind{"H.266 video", stream(0x33), {}, "H.266", untold},
        Kind{"H.266 video", stream(0x06, {registration("VVC ")}), {}, "H.266", untold},
        Kind{"MPEG-H audio", stream(0x2D), {}, "MPEG-H", untold},
        Kind{"H.265 video, temporal layer", stream(0x25), {}, "", untold},
        Kind{"LCEVC enhancement", stream(0x36), {}, "", untold},
        Kind{"AVS3 video", stream(0xD4), {}, "AVS3", untold},
        Kind{"AV1 video", stream(0x06, {registration("AV01")}), {}, "AV1", untold},
        Kind{"T2-MI", stream(0x06, {{0x7F, {0x11, 0, 0, 0}}}), {}, "", untold},
        Kind{"TTML subtitles", stream(0x06, {{0x7F, {0x20, 'd', 'e', 'u'}}}), {}, "", untold},
        Kind{"captions (ISDB)", stream(0x06, {{0xFD, {0x00, 0x08, 0x3D}}}), {}, "", untold}});
}

TEST(KindOf, TellsPrivateSectionsApartByDescriptors)
{
    expectKinds({Kind{"private sections", stream(0x05), {}, "", untold},
        Kind{"application information (AIT)", stream(0x05, {{0x6F, {0x00, 0x10, 0xE0}}}), {}, "", untold},
        Kind{"system software update", stream(0x05, {{0x66, {0x00, 0x0A, 0x00}}}), {}, "", untold},
        Kind{"data broadcast", stream(0x05, {{0x66, {0x77}}}), {}, "", untold},
        Kind{"splice information (SCTE-35)", stream(0x86, {{0x8A, {0x01}}}), {}, "", untold}});
}

// The demultiplexer hands DTS on in private PES with a registration, as type 0x8A, and from discs.
TEST(KindOf, FindsDtsInAllItsForms)
{
    expectKinds({Kind{"DTS audio", stream(0x06, {{0x7B, {0, 0, 0, 0, 0}}}), {}, "DTS", never},
        Kind{"DTS-HD audio", stream(0x06, {{0x7F, {0x0E, 0}}}), {}, "DTS-HD", never},
        Kind{"DTS audio", stream(0x06, {registration("DTS1")}), {}, "DTS", untold},
        Kind{"DTS audio", stream(0x06, {{0x7B, {0}}, registration("DTS2")}), {}, "DTS", untold},
        Kind{"DTS audio", stream(0x8A), {}, "DTS", untold},
        Kind{"DTS audio", stream(0x8A, {registration("DTS3")}), {}, "DTS", untold},
        Kind{"DTS audio", stream(0x82), {}, "DTS", never},
        Kind{"DTS audio", stream(0x82, {registration("DTS2")}), {}, "DTS", never},
        Kind{"DTS audio", stream(0x85, {registration("DTS1")}), {}, "DTS", never},
        Kind{"DTS audio", stream(0x86, {registration("DTS3")}), {}, "DTS", never},
        Kind{"DTS audio", stream(0x82), {registration("HDMV")}, "DTS", untold},
        Kind{"DTS-HD audio", stream(0x86), {registration("HDMV")}, "DTS-HD", untold}});
}

TEST(KindOf, LeavesTheSameTypesToOtherUsers)
{
    expectKinds({Kind{"subtitles", stream(0x82), {registration("SCTE")}, "", untold},
        Kind{"subtitles", stream(0x82), {registration("GA94")}, "", untold},
        Kind{"type 0x82", stream(0x82, {registration("XYZ1")}), {}, "", untold},
        Kind{"splice information (SCTE-35)", stream(0x86), {registration("CUEI")}, "", untold},
        Kind{"splice information (SCTE-35)", stream(0x86, {registration("CUEI")}), {}, "", untold},
        Kind{"type 0x86", stream(0x86), {}, "", untold}, Kind{"type 0x85", stream(0x85), {}, "", untold},
        Kind{"LPCM audio", stream(0x80), {registration("HDMV")}, "LPCM", untold},
        Kind{"type 0x80", stream(0x80), {}, "", untold}});
}

// --- what is seen and heard ---

// Pictures and sounds as a PMT announces them.
const Stream mpeg2 = stream(0x02);
const Stream h264 = stream(0x1B);
const Stream avs = stream(0x42);
const Stream mpegAudio = stream(0x03);
const Stream aac = stream(0x0F);
const Stream ac3 = stream(0x06, {{0x6A, {0}}});
const Stream ac4 = stream(0x06, {{0x7F, {0x15, 0}}});
const Stream dts = stream(0x06, {{0x7B, {0}}});
const Stream dtsUntold = stream(0x8A);
const Stream opus = stream(0x06, {registration("Opus")});
const Stream teletext = stream(0x06, {{0x56, {}}});

constexpr EbsDecoderInfo nothing{0, 0, 0, 0};

struct Case
{
    const char* text;
    std::vector<Stream> streams;
    std::optional<EbsDecoderInfo> told;
    State picture;
    State sound;
    bool more; ///< worth to ask again
    bool radio = false;
    bool scrambled = false; ///< as the PMT says
};

ServiceDescription::Service service(bool radio, bool scrambled = false)
{
    ServiceDescription::Service service;
    service.type = radio ? 0x02 : 0x01;
    service.scrambled = scrambled;
    return service;
}

void expectPresentations(std::initializer_list<Case> cases)
{
    for (const Case& given : cases) {
        SCOPED_TRACE(given.text);
        ProgramMap program = programOf(given.streams);
        if (given.scrambled)
            program.descriptors.push_back({conditionalAccessTag, {0x0B, 0x00, 0xE1, 0x00}});
        const auto described = service(given.radio);
        const Presentation presentation = presentationOf(program, given.told, &described);
        EXPECT_EQ(wordOf(presentation.picture.state), wordOf(given.picture));
        EXPECT_EQ(wordOf(presentation.sound.state), wordOf(given.sound));
        EXPECT_EQ(textOf(presentation), given.text);
        if (given.told.has_value()) {
            EXPECT_EQ(mayTellMore(program, *given.told), given.more);
        }
    }
}

TEST(PresentationOf, Television)
{
    expectPresentations({Case{"picture and sound", {h264, aac, teletext}, EbsDecoderInfo{2, 1280, 720, 1},
                             State::Decoded, State::Decoded, false},
        Case{"picture and sound", {avs, opus, aac}, EbsDecoderInfo{0, 1280, 720, 1}, State::Decoded,
            State::Decoded, false},
        Case{"picture only: the service has no sound", {mpeg2, teletext}, EbsDecoderInfo{1, 352, 288, 0},
            State::Decoded, State::Absent, false},
        Case{"picture only: no decoder for the sound (DTS)", {mpeg2, dts}, EbsDecoderInfo{1, 352, 288, 0},
            State::Decoded, State::Undecodable, false},
        Case{"picture only: no decoder for the sound (AC-4, DTS)", {mpeg2, ac4, ac4, dts},
            EbsDecoderInfo{1, 352, 288, 0}, State::Decoded, State::Undecodable, false},
        Case{"picture and sound", {mpeg2, ac4, ac3}, EbsDecoderInfo{1, 352, 288, 2}, State::Decoded,
            State::Decoded, false},
        Case{"picture only so far: no sound decoded yet", {mpeg2, ac4, ac3}, EbsDecoderInfo{1, 352, 288, 0},
            State::Decoded, State::Awaited, true},
        Case{"picture only so far: no sound decoded yet (scrambled?)", {mpeg2, mpegAudio},
            EbsDecoderInfo{1, 352, 288, 0}, State::Decoded, State::Awaited, true, false, true},
        Case{"picture; whether the sound (Opus) is decoded, the instrument does not tell", {mpeg2, opus},
            EbsDecoderInfo{1, 352, 288, 0}, State::Decoded, State::Untold, false},
        Case{"picture; whether the sound (DTS, AC-3) is decoded, the instrument does not tell",
            {mpeg2, dtsUntold, ac3}, EbsDecoderInfo{1, 352, 288, 0}, State::Decoded, State::Untold, true}});
}

TEST(PresentationOf, Radio)
{
    expectPresentations({Case{"sound only: radio", {mpegAudio}, EbsDecoderInfo{0, 0, 0, 4}, State::Absent,
                             State::Decoded, false, true},
        Case{"sound only: the service has no picture", {ac3}, EbsDecoderInfo{0, 0, 0, 2}, State::Absent,
            State::Decoded, false},
        Case{"sound only so far: no picture decoded yet", {h264, aac}, EbsDecoderInfo{2, 0, 0, 1},
            State::Awaited, State::Decoded, true},
        Case{"sound only so far: no picture decoded yet (scrambled?)", {h264, aac},
            EbsDecoderInfo{2, 0, 0, 1}, State::Awaited, State::Decoded, true, true, true},
        Case{"neither picture nor sound: no decoder for the sound (AC-4)", {ac4}, nothing, State::Absent,
            State::Undecodable, true, true},
        Case{"no picture; whether the sound (Opus) is decoded, the instrument does not tell", {opus}, nothing,
            State::Absent, State::Untold, true, true}});
}

TEST(PresentationOf, WhereNothingIsDecoded)
{
    expectPresentations({Case{"neither picture nor sound: the service has none", {teletext}, nothing,
                             State::Absent, State::Absent, false},
        Case{"nothing decoded yet", {h264, aac}, nothing, State::Awaited, State::Awaited, true},
        Case{"nothing decoded yet: scrambled?", {h264, aac}, nothing, State::Awaited, State::Awaited, true,
            false, true},
        Case{"nothing decoded yet", {mpegAudio}, nothing, State::Absent, State::Awaited, true, true},
        Case{"nothing decoded yet", {h264}, EbsDecoderInfo{2, 0, 0, 0}, State::Awaited, State::Absent, true},
        Case{"nothing decoded yet: scrambled?; no decoder for the sound (DTS)", {h264, dts}, nothing,
            State::Awaited, State::Undecodable, true, false, true},
        Case{"no picture decoded yet; whether the sound (Opus) is decoded, the instrument does not tell",
            {h264, opus}, nothing, State::Awaited, State::Untold, true}});
}

TEST(PresentationOf, WithoutDecoderInformation)
{
    expectPresentations({Case{"the instrument does not tell what it decodes", {h264, aac}, std::nullopt,
                             State::Untold, State::Untold, false},
        Case{"the instrument does not tell what it decodes", {h264}, std::nullopt, State::Untold,
            State::Absent, false},
        Case{"no picture; whether the sound (AAC) is decoded, the instrument does not tell", {aac},
            std::nullopt, State::Absent, State::Untold, false, true},
        Case{"neither picture nor sound: the service has none", {teletext}, std::nullopt, State::Absent,
            State::Absent, false}});
}

TEST(PresentationOf, NamesTheCodecThatIsDecodedAndThePicturesSize)
{
    const ProgramMap program = programOf({h264, ac3, aac, ac3});
    const Presentation presentation = presentationOf(program, EbsDecoderInfo{2, 1280, 720, 1}, nullptr);
    EXPECT_EQ(presentation.picture.codec, "H.264");
    EXPECT_EQ(presentation.width, 1280);
    EXPECT_EQ(presentation.height, 720);
    EXPECT_EQ(presentation.sound.codec, "AAC");
    // The PMT does not tell the layer, and may be silent or older than what is played.
    EXPECT_EQ(presentationOf(programOf({mpegAudio}), EbsDecoderInfo{0, 0, 0, 4}, nullptr).sound.codec,
        "MPEG-1 layer 2");
    const Presentation other = presentationOf(program, EbsDecoderInfo{15, 1920, 1080, 7}, nullptr);
    EXPECT_EQ(other.picture.codec, "HEVC");
    EXPECT_EQ(other.sound.codec, "E-AC-3");
    EXPECT_EQ(presentationOf(programOf({avs}), EbsDecoderInfo{0, 352, 288, 0}, nullptr).picture.codec, "AVS");
}

TEST(PresentationOf, NoticesConditionalAccessOfASingleStream)
{
    Stream scrambled = h264;
    scrambled.descriptors.push_back({conditionalAccessTag, {0x0B, 0x00, 0xE1, 0x00}});
    using Scrambling = Presentation::Scrambling;
    EXPECT_EQ(
        presentationOf(programOf({mpegAudio, scrambled}), nothing, nullptr).scrambling, Scrambling::Perhaps);
    EXPECT_EQ(presentationOf(programOf({mpegAudio, h264}), nothing, nullptr).scrambling, Scrambling::No);
}

TEST(PresentationOf, SaysScrambledForSureWhenTheServiceListDoes)
{
    const auto paid = service(false, true);
    const ProgramMap program = programOf({h264, aac});
    const Presentation silent = presentationOf(program, nothing, &paid);
    EXPECT_EQ(wordOf(silent.scrambling), "yes");
    EXPECT_EQ(textOf(silent), "nothing decoded yet: scrambled");
    EXPECT_EQ(textOf(presentationOf(program, EbsDecoderInfo{2, 1280, 720, 0}, &paid)),
        "picture only so far: no sound decoded yet (scrambled)");
    EXPECT_EQ(textOf(presentationOf(program, EbsDecoderInfo{2, 1280, 720, 1}, &paid)), "picture and sound");
}

// --- systems of conditional access ---

TEST(ConditionalAccessOf, NamesEachSystemAndPidOnce)
{
    Stream both = h264;
    both.descriptors = {{conditionalAccessTag, {0x0B, 0x00, 0xE1, 0x00}},
        {conditionalAccessTag, {0x18, 0x33, 0xFF, 0xFE, 0x01}}, {conditionalAccessTag, {0x0B, 0x00, 0xE1}}};
    const auto found =
        conditionalAccessOf(programOf({both, both}, {{conditionalAccessTag, {0x0B, 0x00, 0xE1, 0x00}}}));
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].systemId, 0x0B00);
    EXPECT_EQ(found[0].pid, 0x100);
    EXPECT_EQ(found[1].pid, 0x1FFE);
    EXPECT_EQ(conditionalAccessName(found[1].systemId), "Nagravision");
    EXPECT_EQ(conditionalAccessName(0x7777), "");
}

} // namespace
