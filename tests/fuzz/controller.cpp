// The controller's decoders: answers of any bytes.
//
// Input: what to decode (1 byte, the place in `decoders`), then the bytes. For decodeSoundSections they are
// sections: table (1), length (2), the bytes, each gets a right header and CRC_32. For decodeIntervals a
// number of bars (1) stands in front. For converse see there.
#include "client/controller.h"
#include "client/answererror.h"
#include "client/crc32.h"
#include "client/lineerror.h"
#include "client/mpegtsnames.h"
#include "client/softwareupdate.h"
#include "client/streamtables.h"
#include "client/t2mipacket.h"
#include "support/containment.h"
#include "support/input.h"
#include "support/scriptedline.h"

#include <array>

using namespace tessary::client;

namespace {

constexpr std::size_t longestSection = 4096;

/// What a person is told of the tables.
std::size_t describe(const std::vector<Section>& sections)
{
    std::size_t letters = 0;
    for (const Section& section : sections) {
        if (const auto pat = decodePat(section))
            letters += pat->programs.size();
        if (const auto pmt = decodePmt(section)) {
            for (const ProgramMap::Stream& stream : pmt->streams)
                letters += streamName(stream).size() + stream.language.size();
        }
        if (const auto nit = decodeNit(section))
            letters += nit->networkName.size() + nit->transportStreams.size();
        if (const auto sdt = decodeSdt(section)) {
            for (const auto& service : sdt->services)
                letters += serviceTypeName(service.type).size()
                    + runningStatusName(service.runningStatus).size() + service.name.size();
        }
    }
    return letters;
}

/// AnswerError is how these refuse what does not decode.
template <typename Reader, typename Answer> void read(const Reader& reader, const Answer& answer)
{
    try {
        reader(answer);
    } catch (const AnswerError&) {
    }
}

void decodeSections(const Bytes& bytes)
{
    const SplitResult split = splitSections(bytes);
    std::size_t counted = split.rest.size();
    for (const Section& section : split.sections)
        counted += section.bytes.size();
    FUZZ_REQUIRE(counted == bytes.size() && split.rest.empty() == split.problem.empty());
    describe(split.sections);
    read(readServices, bytes);
    read(readNetwork, bytes);
    read(readProgram, bytes);
}

void decodeSoundSections(const Bytes& bytes)
{
    static constexpr std::array<std::uint8_t, 6> tables{0x00, 0x02, 0x40, 0x41, 0x42, 0x46};
    Input input(bytes.data(), bytes.size());
    Bytes chain;
    while (!input.empty()) {
        const std::uint8_t table = tables[input.byte() % tables.size()];
        Bytes section = input.bytes(input.number(2) % (longestSection - 4));
        section.resize(std::max<std::size_t>(section.size(), 8));
        const std::size_t length = section.size() + 4 - 3;
        section[0] = table;
        section[1] = static_cast<std::uint8_t>(0xB0U | length >> 8);
        section[2] = static_cast<std::uint8_t>(length);
        const std::uint32_t crc = crc32Mpeg(section.data(), section.size());
        chain.insert(chain.end(), section.begin(), section.end());
        for (unsigned shift = 32; shift > 0; shift -= 8)
            chain.push_back(static_cast<std::uint8_t>(crc >> (shift - 8)));
    }
    FUZZ_REQUIRE(splitSections(chain).whole());
    decodeSections(chain);
}

void decodeT2mi(const Bytes& bytes)
{
    const std::size_t size = t2miPacketSize(bytes);
    const auto packet = decodeT2miPacket(bytes);
    FUZZ_REQUIRE(!packet || size == bytes.size());
    if (packet)
        FUZZ_REQUIRE(!t2miTypeName(packet->type).empty());
}

void decodeTexts(const Bytes& bytes)
{
    const std::string text(bytes.begin(), bytes.end());
    read([](const std::string& frame) { ebsVideoName(parseEbsStatus(frame).selected); }, text);
    read(
        [](const std::string& frame) {
            const EbsDecoderInfo info = parseEbsDecoderInfo(frame);
            FUZZ_REQUIRE(!ebsVideoName(info.videoCode).empty() && !ebsAudioName(info.audioCode).empty());
        },
        text);
    read([](const std::string& line) { parseVersion(line); }, text);
    read([](const std::string& values) { decodeMeasurement(values); }, text);
}

void histogram(const std::vector<std::int64_t>& times, std::size_t bins)
{
    const std::vector<HistogramBin> histogram = histogramOf(times, bins);
    FUZZ_REQUIRE(histogram.size() <= bins && histogram.empty() == (times.empty() || bins == 0));
    std::size_t counted = 0;
    for (const HistogramBin& bin : histogram)
        counted += bin.count;
    FUZZ_REQUIRE(histogram.empty() || counted == times.size());
}

void decodeIntervals(const Bytes& bytes)
{
    if (bytes.empty())
        return;
    const std::size_t bins = bytes.front();
    const std::string text(bytes.begin() + 1, bytes.end());
    read(
        [bins](const std::string& answer) {
            std::vector<std::int64_t> times = parseInterArrivalTimes(answer);
            removeAbsoluteTimes(times);
            const InterArrivalStatistics figures = statisticsOf(times);
            FUZZ_REQUIRE(figures.count == times.size() && figures.shortest <= figures.longest);
            FUZZ_REQUIRE(figures.shortest <= figures.median && figures.median <= figures.percentile95);
            histogram(times, bins);
        },
        text);
}

/// Calls of the controller whose answer means something, one after another.
void ask(Controller& controller, SerialLine& line, unsigned question)
{
    switch (question % 16U) {
    case 0:
        controller.version();
        return;
    case 1:
        controller.streamInfo();
        return;
    case 2:
        controller.networkInformation();
        return;
    case 3:
        controller.programMap();
        return;
    case 4:
        controller.playerStatus();
        return;
    case 5:
        controller.t2miFrame();
        return;
    case 6:
        controller.measurement();
        return;
    case 7:
        controller.interArrivalTimes();
        return;
    case 8:
        controller.interfaceAddress();
        return;
    case 9:
        controller.recordingSize();
        return;
    case 10:
        controller.ebsStatus();
        return;
    case 11:
        controller.ebsDecoderInfo();
        return;
    case 12:
        controller.ebsPlay(1);
        return;
    case 13:
        controller.dab("dab");
        return;
    case 14:
        controller.waitForGreeting(Milliseconds(1000));
        return;
    default:
        SoftwareUpdate(line, {}).run(Bytes(3000, 0x55), [](std::size_t) {});
        return;
    }
}

/// Input: length of the list of questions (1), the questions, then all that the instrument says.
void converse(const Bytes& bytes)
{
    Input input(bytes.data(), bytes.size());
    const Bytes questions = input.bytes(input.byte());
    scriptedline::load(input.text());
    SerialLine line("fuzz");
    Controller controller(line);
    for (const std::uint8_t question : questions) {
        try {
            ask(controller, line, question);
        } catch (const AnswerError&) {
        } catch (const LineError& error) {
            if (error.kind() == LineError::Kind::HungUp)
                return;
        }
    }
}

constexpr std::array decoders{
    decodeSections, decodeSoundSections, decodeT2mi, decodeTexts, decodeIntervals, converse};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    requireContainment();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    const auto decode = decoders[input.byte() % decoders.size()];
    decode(input.rest());
    return 0;
}
