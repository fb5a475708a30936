// The controller's decoders: answers of any bytes.
//
// Input: what to decode (1 byte, the place in `decoders`), then the bytes. For decodeSoundSections they are
// sections: table (1), length (2), the bytes, each gets a right header and CRC_32. For decodeIntervals a
// number of bars (1) stands in front. For converse see there.
#include "client/controller.h"
#include "client/answererror.h"
#include "client/lineerror.h"
#include "client/psi/conditionalaccess.h"
#include "client/psi/delivery.h"
#include "client/psi/languages.h"
#include "client/psi/mpegtsnames.h"
#include "client/psi/streamkind.h"
#include "client/psi/t2mipacket.h"
#include "client/softwareupdate.h"
#include "client/streamtables.h"
#include "kit/sections.h"
#include "support/containment.h"
#include "support/input.h"
#include "support/scriptedline.h"

#include <array>
#include <iterator>

using namespace tessary::client;

namespace {

constexpr std::size_t longestSection = 4096;

std::size_t describe(const NetworkInformation& network)
{
    std::size_t letters = 0;
    for (const auto& stream : network.transportStreams) {
        for (const Delivery& delivery : deliveriesOf(stream.descriptors))
            letters += textOf(delivery).size();
        letters += logicalChannelsOf(stream.descriptors).size();
    }
    return letters;
}

/// What a person is told of the tables.
std::size_t describe(const std::vector<Section>& sections)
{
    std::size_t letters = 0;
    for (const Section& section : sections) {
        if (const auto pat = decodePat(section))
            letters += pat->programs.size();
        if (const auto pmt = decodePmt(section)) {
            letters += conditionalAccessOf(*pmt).size();
            for (const ProgramMap::Stream& stream : pmt->streams)
                letters += kindOf(*pmt, stream).text.size() + textOf(languagesOf(stream.descriptors)).size();
        }
        if (const auto nit = decodeNit(section))
            letters += nit->networkName.size() + describe(*nit);
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
        section.resize(std::max<std::size_t>(section.size(), 1));
        section[0] = table;
        tessary::test::append(chain, tessary::test::soundSection(section));
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

using Question = void (*)(Controller&, SerialLine&);

/// Calls of the controller whose answer means something.
constexpr Question questions[] = {
    [](Controller& c, SerialLine&) { c.version(); },
    [](Controller& c, SerialLine&) { c.streamInfo(); },
    [](Controller& c, SerialLine&) { c.networkInformation(); },
    [](Controller& c, SerialLine&) { c.programMap(); },
    [](Controller& c, SerialLine&) { c.playerStatus(); },
    [](Controller& c, SerialLine&) { c.t2miFrame(); },
    [](Controller& c, SerialLine&) { c.measurement(); },
    [](Controller& c, SerialLine&) { c.interArrivalTimes(); },
    [](Controller& c, SerialLine&) { c.interfaceAddress(); },
    [](Controller& c, SerialLine&) { c.recordingSize(); },
    [](Controller& c, SerialLine&) { c.ebsStatus(); },
    [](Controller& c, SerialLine&) { c.ebsDecoderInfo(); },
    [](Controller& c, SerialLine&) { c.ebsPlay(1); },
    [](Controller& c, SerialLine&) { c.dab("dab"); },
    [](Controller& c, SerialLine&) { c.waitForGreeting(Milliseconds(1000)); },
    [](Controller&, SerialLine& line) {
        SoftwareUpdate(line, {}).run(Bytes(3000, 0x55), [](std::size_t) {});
    },
    [](Controller& c, SerialLine&) { c.ipStatus(); },
    [](Controller& c, SerialLine&) { c.ebsServiceName(31); },
    [](Controller& c, SerialLine&) { c.ebsAudioLevel(16); },
    [](Controller& c, SerialLine&) { c.ebsVersion(); },
    [](Controller& c, SerialLine&) { c.exportRecording(); },
};

/// Input: length of the list of questions (1), the questions, then all that the instrument says.
void converse(const Bytes& bytes)
{
    Input input(bytes.data(), bytes.size());
    const Bytes asked = input.bytes(input.byte());
    scriptedline::load(input.text());
    SerialLine line("fuzz");
    Controller controller(line);
    for (const std::uint8_t question : asked) {
        try {
            questions[question % std::size(questions)](controller, line);
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
