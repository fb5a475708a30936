#include "demo/picture.h"
#include "demo/sound.h"
#include "systemsuite.h"

#include <cmath>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <sstream>
#include <thread>

namespace {

using namespace tessary;
using namespace tessary::test;
using observe::Rgb;
using Protocol = client::StreamServer::Protocol;

// demo.ts is on the air all the time: three programs, each a colour field and a tone.
// What is sent                    | picture | sound   | videostatus?
// play=2                          | green   | 1000 Hz | running
// play=1 after it                 | red     | 440 Hz  | running
// scancur after it                | stands  | stops   | running (the scan is)
// play=9 (not in the stream)      | stands  | stops   | running
// play=3 over RTP multicast       | blue    | 1700 Hz | running

struct Program
{
    int number;
    Rgb colour;
    double hertz;
};
constexpr Program red{1, {0xFF, 0x00, 0x00}, 440};
constexpr Program green{2, {0x00, 0xC0, 0x00}, 1000};
constexpr Program blue{3, {0x00, 0x00, 0xFF}, 1700};

class Play : public SystemSuite
{
protected:
    void SetUp() override
    {
        if (!QFileInfo::exists(madeStream("demo.ts")))
            FAIL() << madeStream("demo.ts").toStdString()
                   << " is missing; make it: bench/streams/make-streams build/streams";
        line().discardInput();
    }

    static RunningStream sendDemo(const std::string& protocol, const std::string& address)
    {
        const QString url = QString::fromStdString(protocol + "://" + address + ":5030");
        return instrument().send({madeStream("demo.ts"), url, "--loop", "--interface", "uplink"});
    }

    static void selectUdp()
    {
        controller().setServer({Protocol::Udp, instrument().ethernetAddress().toStdString(), 5030, 0, 0});
        controller().scan();
    }

    static bool shows(const Program& program, std::string* seen = nullptr)
    {
        try {
            double share = 0;
            const Rgb colour = observe::dominantColour(
                observe::readPpm(instrument().sharedFile("display.ppm").toStdString()), &share);
            if (seen != nullptr)
                *seen = observe::colourText(colour);
            return observe::isNear(colour, program.colour, 40) && share > 0.5;
        } catch (const std::runtime_error& error) {
            if (seen != nullptr)
                *seen = error.what();
            return false;
        }
    }

    static bool sounds(const Program& program, std::string* heard = nullptr)
    {
        try {
            const auto sound = observe::readWav(instrument().sharedFile("sound.wav").toStdString());
            const observe::Tone tone = observe::strongestTone(sound, 0.5);
            if (heard != nullptr) {
                std::ostringstream words;
                words << tone.hertz << " Hz, share " << tone.share << ", " << sound.seconds()
                      << " s of sound";
                *heard = words.str();
            }
            return std::abs(tone.hertz - program.hertz) <= 5 && tone.share > 0.8;
        } catch (const std::runtime_error& error) {
            if (heard != nullptr)
                *heard = error.what();
            return false;
        }
    }

    static void expectProgram(const Program& program)
    {
        constexpr int milliseconds = 20000;
        std::string seen;
        std::string heard;
        EXPECT_TRUE(waitUntil([&] { return shows(program, &seen); }, patiently(milliseconds))) << seen;
        EXPECT_TRUE(waitUntil([&] { return sounds(program, &heard); }, patiently(milliseconds))) << heard;
        EXPECT_EQ(controller().playerStatus(), "running");
    }

    static int framesShown()
    {
        QFile file(instrument().sharedFile("display.json"));
        if (!file.open(QIODevice::ReadOnly))
            return 0;
        return QJsonDocument::fromJson(file.readAll()).object()["frames"].toInt();
    }

    static qint64 bytesOfSound() { return QFileInfo(instrument().sharedFile("sound.wav")).size(); }

    /// Neither a new picture nor more sound for a second.
    static void expectStandStill()
    {
        const int frames = framesShown();
        const qint64 sound = bytesOfSound();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        EXPECT_EQ(framesShown(), frames);
        EXPECT_EQ(bytesOfSound(), sound);
    }
};

TEST_F(Play, ShowsAndSoundsTheChosenProgramAndThenAnother)
{
    const RunningStream stream = sendDemo("udp", instrument().ethernetAddress().toStdString());
    selectUdp();
    controller().play(green.number);
    expectProgram(green);
    controller().play(red.number);
    expectProgram(red);
}

TEST_F(Play, AScanStopsThePictureAndTheSound)
{
    const RunningStream stream = sendDemo("udp", instrument().ethernetAddress().toStdString());
    selectUdp();
    controller().play(green.number);
    expectProgram(green);
    controller().scan();
    EXPECT_EQ(controller().playerStatus(), "running");
    expectStandStill();
}

TEST_F(Play, AProgramThatIsNotInTheStreamShowsNothing)
{
    const RunningStream stream = sendDemo("udp", instrument().ethernetAddress().toStdString());
    selectUdp();
    controller().play(green.number);
    expectProgram(green);
    controller().play(9);
    EXPECT_EQ(controller().playerStatus(), "running");
    expectStandStill();
    EXPECT_TRUE(controller().programMap().empty());
}

TEST_F(Play, WorksOverRtpMulticastWithoutAScanBefore)
{
    restartDaemon();
    controller().setServer({Protocol::Rtp, "239.1.2.3", 5030, 0, 0});
    const RunningStream stream = sendDemo("rtp", "239.1.2.3");
    controller().play(blue.number);
    expectProgram(blue);
}

TEST_F(Play, TheLinkMayGoDownAndComeBack)
{
    const RunningStream stream = sendDemo("udp", instrument().ethernetAddress().toStdString());
    selectUdp();
    controller().play(green.number);
    expectProgram(green);
    instrument().setLink(false);
    expectOnlyVersionAnswers();
    instrument().setLink(true);
    const int frames = framesShown();
    EXPECT_TRUE(waitUntil([&] { return framesShown() > frames + 25; }, patiently(30000)))
        << "the picture did not come back";
}

TEST_F(Play, ARecordingPlaysAsASourceLikeAnyOther)
{
    ASSERT_TRUE(QFile::exists(instrument().sharedFile("record.ts"))
        || QFile::copy(madeStream("demo.ts"), instrument().sharedFile("record.ts")));
    instrument().shell(
        "mkdir -p /run/media/mmcblk1p1 && mv /run/bench/record.ts /run/media/mmcblk1p1/record.ts");
    controller().scanRecording();
    EXPECT_TRUE(waitUntil([] { return controller().playerStatus() == "stopped"; }, patiently(20000)));
    controller().play(red.number);
    expectProgram(red);
}

} // namespace
