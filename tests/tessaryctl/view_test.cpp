#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/viewmodel.h"
#include "client/tessaryctl/viewscreen.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace tessary::client;
using namespace tessary::ctl;

namespace {

using Kind = ViewOrder::Kind;
using State = PeriodWatch::State;

ServiceTable services(int count = 2)
{
    ServiceTable table;
    table.services.transportStreamId = 7;
    for (int i = 1; i <= count; ++i) {
        ServiceDescription::Service service;
        service.id = static_cast<std::uint16_t>(i);
        service.type = i == 2 ? 2 : 1;
        service.scrambled = i == 2;
        service.name = "Service " + std::to_string(i);
        table.services.services.push_back(service);
    }
    return table;
}

ProgramMap program(int number)
{
    ProgramMap map;
    map.programNumber = static_cast<std::uint16_t>(number);
    map.pcrPid = 256;
    map.streams = {{0x02, 256, {}}, {0x04, 257, {{0x0a, {'e', 'n', 'g', 0}}, {0x52, {1}}}}};
    return map;
}

ViewModel scanned()
{
    ViewModel model;
    model.port = "/dev/ttyUSB0";
    model.setServices(services());
    model.setProgram(program(1));
    return model;
}

std::vector<std::string> textsOf(const ViewModel& model)
{
    std::vector<std::string> texts;
    for (const ViewLine& line : model.lines())
        texts.push_back(std::string(static_cast<std::size_t>(line.depth), '.') + line.text);
    return texts;
}

TEST(ViewModel, ServicesOpenIntoPidsAndThoseIntoDescriptors)
{
    ViewModel model = scanned();
    using Texts = std::vector<std::string>;
    EXPECT_EQ(textsOf(model), (Texts{"1  Service 1", "2  Service 2  radio  scrambled"}));
    model.press(ViewKey::Toggle);
    EXPECT_EQ(textsOf(model),
        (Texts{"1  Service 1", ".256  MPEG-2 video  PCR", ".257  MPEG-2 audio  eng",
            "2  Service 2  radio  scrambled"}));
    model.press(ViewKey::Down);
    model.press(ViewKey::Down);
    model.press(ViewKey::Open);
    ASSERT_EQ(model.lines().size(), 6U);
    EXPECT_EQ(textsOf(model)[3], "..language (0x0a)  656e6700");
    EXPECT_EQ(textsOf(model)[4], "..stream identifier (0x52)  01");
    model.press(ViewKey::Down);
    model.press(ViewKey::Close); // to its PID
    EXPECT_EQ(model.cursor(), 2U);
    model.press(ViewKey::Close);
    EXPECT_EQ(model.lines().size(), 4U);
    model.press(ViewKey::Close); // to its service
    model.press(ViewKey::Toggle);
    EXPECT_EQ(model.lines().size(), 2U);
}

TEST(ViewModel, AServiceWithoutKnownPidsSaysHowToKnowThem)
{
    ViewModel model = scanned();
    model.press(ViewKey::Last);
    model.press(ViewKey::Toggle);
    EXPECT_EQ(model.lines().size(), 2U);
    EXPECT_NE(model.message.find("press p"), std::string::npos);
}

TEST(ViewModel, TheCursorStaysInTheTree)
{
    ViewModel model;
    for (const ViewKey key : {ViewKey::Up, ViewKey::Down, ViewKey::PageDown, ViewKey::Last, ViewKey::Toggle,
             ViewKey::Close, ViewKey::Open})
        EXPECT_FALSE(model.press(key).has_value());
    EXPECT_EQ(model.cursor(), 0U);
    model.setServices(services(50));
    model.setPage(10);
    model.press(ViewKey::PageDown);
    EXPECT_EQ(model.cursor(), 9U);
    model.press(ViewKey::Last);
    EXPECT_EQ(model.cursor(), 49U);
    model.setServices(services(3));
    EXPECT_EQ(model.cursor(), 2U);
    model.press(ViewKey::First);
    EXPECT_EQ(model.cursor(), 0U);
}

TEST(ViewModel, KeysAreOrders)
{
    ViewModel model = scanned();
    EXPECT_EQ(model.press(ViewKey::Scan)->kind, Kind::Scan);
    model.press(ViewKey::Down);
    const auto play = model.press(ViewKey::Play);
    ASSERT_TRUE(play.has_value());
    EXPECT_EQ(play->kind, Kind::Play);
    EXPECT_EQ(play->program, 2);
    EXPECT_EQ(model.press(ViewKey::Measure)->kind, Kind::StartMeasuring);
    model.measuring = true;
    EXPECT_EQ(model.press(ViewKey::Measure)->kind, Kind::StopMeasuring);
    EXPECT_EQ(model.press(ViewKey::Record)->kind, Kind::StartRecording);
    model.recording = true;
    EXPECT_EQ(model.press(ViewKey::Record)->kind, Kind::StopRecording);
    EXPECT_FALSE(model.quit);
    model.press(ViewKey::Quit);
    EXPECT_TRUE(model.quit);
}

TEST(ViewModel, OneOrderAtATime)
{
    ViewModel model = scanned();
    model.busy = "scanning";
    for (const ViewKey key : {ViewKey::Scan, ViewKey::Play, ViewKey::Measure, ViewKey::Record})
        EXPECT_FALSE(model.press(key).has_value());
    EXPECT_EQ(model.message, "wait for it: scanning");
    model.press(ViewKey::Down); // the tree goes on
    EXPECT_EQ(model.cursor(), 1U);
}

TEST(ViewModel, ARecordingIsOverwrittenOnlyAfterYes)
{
    ViewModel model = scanned();
    model.recordingSize = 12'000'000;
    EXPECT_FALSE(model.press(ViewKey::Record).has_value());
    EXPECT_NE(model.message.find("overwrite the recording of 12.0 MB?"), std::string::npos);
    EXPECT_FALSE(model.press(ViewKey::Other).has_value());
    EXPECT_FALSE(model.press(ViewKey::Yes).has_value()) << "too late";
    model.press(ViewKey::Record);
    EXPECT_EQ(model.press(ViewKey::Yes)->kind, Kind::StartRecording);
}

TEST(ViewModel, AnyKeyLeavesTheHelp)
{
    ViewModel model = scanned();
    model.press(ViewKey::Help);
    EXPECT_TRUE(model.help);
    EXPECT_FALSE(model.press(ViewKey::Play).has_value());
    EXPECT_FALSE(model.help);
}

TEST(ViewModel, TheCourseGrowsByOneAPeriod)
{
    ViewModel model;
    Measurement m;
    m.present = true;
    m.bitRate = 5;
    PeriodWatch::Total total;
    model.setMeasurement(State::Settling, m, total);
    EXPECT_TRUE(model.rates().empty());
    total.periods = 1;
    model.setMeasurement(State::Valid, m, total);
    model.setMeasurement(State::Valid, m, total);
    EXPECT_EQ(model.rates().size(), 1U);
    total.periods = 2;
    model.setMeasurement(State::Valid, m, total);
    EXPECT_EQ(model.rates().size(), 2U);
}

/// The screen as lines of text.
std::vector<std::string> drawn(ViewModel& model, std::size_t width, std::size_t height)
{
    std::vector<std::string> lines(height);
    for (const ViewPiece& piece : screenOf(model, width, height, "12:34:56")) {
        EXPECT_LT(piece.row, height);
        EXPECT_LE(piece.column + displayWidth(piece.text), width) << piece.text;
        if (piece.row >= height)
            continue;
        std::string& line = lines[piece.row];
        EXPECT_LE(displayWidth(line), piece.column) << "over another: " << piece.text;
        line = padded(line, piece.column) + piece.text;
    }
    return lines;
}

std::string joined(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

ViewModel full()
{
    ViewModel model = scanned();
    model.player = "running";
    model.playing = 1;
    Presentation presentation;
    presentation.picture = {Presentation::State::Decoded, "MPEG-2"};
    presentation.sound = {Presentation::State::Decoded, "MPEG-1 layer II"};
    presentation.width = 720;
    presentation.height = 576;
    model.presentation = presentation;
    model.measuring = true;
    PeriodWatch::Total total;
    total.periods = 9;
    total.errors = 5;
    model.setMeasurement(State::Valid, {true, 10'319'148, 7, 2, 188, 7, 10}, total);
    model.arrivals = statisticsOf({998, 1002, 1053, 2500});
    model.recordingSize = 12'300'000;
    return model;
}

class ViewScreen : public testing::Test
{
protected:
    void SetUp() override { useUtf8(); }
};

TEST_F(ViewScreen, EverythingIsThereAt80x24AndAt200x60)
{
    for (const auto& [width, height] : {std::pair{80U, 24U}, std::pair{200U, 60U}, std::pair{60U, 30U}}) {
        ViewModel model = full();
        const std::string text = joined(drawn(model, width, height));
        for (const char* words :
            {"/dev/ttyUSB0", "12:34:56", "transport stream 7", ">+ 1  Service 1", "<playing>",
                "2  Service 2  radio", "stream present", "10.3 Mbit/s", "7 ms", "errors         2",
                "5 since the start", "7 x 188 bytes", "median 1.05 ms", "99 %   2.50 ms", "998 µs to 2.50 ms",
                "running", "program 1  Service 1", "picture and sound", "12.3 MB", "q quit"})
            EXPECT_NE(text.find(words), std::string::npos) << width << ": " << words << "\n" << text;
    }
}

TEST_F(ViewScreen, FitsAnySize)
{
    for (std::size_t width = 1; width <= 90; width += 3) {
        for (std::size_t height = 1; height <= 40; ++height) {
            ViewModel model = full();
            model.setServices(services(100));
            model.message = std::string(300, 'x');
            drawn(model, width, height);
            model.help = true;
            drawn(model, width, height);
        }
    }
}

TEST_F(ViewScreen, TheCursorIsAlwaysToBeSeen)
{
    ViewModel model;
    model.setServices(services(100));
    for (int i = 1; i <= 100; ++i) {
        const std::string text = joined(drawn(model, 80, 24));
        EXPECT_NE(text.find(">  " + std::to_string(i) + "  Service"), std::string::npos) << text;
        model.press(ViewKey::Down);
    }
}

TEST_F(ViewScreen, WordsTellTheStateAlso)
{
    ViewModel model = full();
    model.state = State::Absent;
    EXPECT_NE(joined(drawn(model, 80, 24)).find("NO STREAM"), std::string::npos);
    EXPECT_EQ(joined(drawn(model, 80, 24)).find("10.3 Mbit/s"), std::string::npos) << "figures of before";
    model.linkDown = true;
    EXPECT_NE(joined(drawn(model, 80, 24)).find("NO ETHERNET LINK"), std::string::npos);
    model.unanswered = true;
    EXPECT_NE(joined(drawn(model, 80, 24)).find("NO ANSWER"), std::string::npos);
    model.measuring = false;
    EXPECT_NE(joined(drawn(model, 80, 24)).find("off, m starts it"), std::string::npos);
    model.recording = true;
    EXPECT_NE(joined(drawn(model, 80, 24)).find("RUNS, 12.3 MB"), std::string::npos);
    model.busy = "scanning";
    EXPECT_NE(joined(drawn(model, 80, 24)).find("scanning ..."), std::string::npos);
    model.sayError(
        "no answer from the instrument on a port with a long name; check that it is on, or restart it");
    const std::string text = joined(drawn(model, 80, 24));
    EXPECT_NE(text.find("scanning ... no answer"), std::string::npos) << text;
    EXPECT_NE(text.find("restart it"), std::string::npos) << text;
    model.help = true;
    EXPECT_NE(joined(drawn(model, 80, 24)).find("Keys"), std::string::npos);
}

} // namespace
