#include "playsuite.h"

#include <chrono>
#include <thread>

namespace {

using namespace tessary;
using namespace tessary::test;
using Protocol = client::StreamServer::Protocol;

// demo.ts is on the air all the time: three programs, each a colour field and a tone.
// What is sent                    | picture | sound   | videostatus?
// play=2                          | green   | 1000 Hz | running
// play=1 after it                 | red     | 440 Hz  | running
// scancur after it                | stands  | stops   | running (the scan is)
// play=9 (not in the stream)      | stands  | stops   | running
// play=3 over RTP multicast       | blue    | 1700 Hz | running

constexpr Program red{1, {0xFF, 0x00, 0x00}, 440};
constexpr Program green{2, {0x00, 0xC0, 0x00}, 1000};
constexpr Program blue{3, {0x00, 0x00, 0xFF}, 1700};

class Play : public PlaySuite
{
protected:
    void SetUp() override { needMadeStream("demo.ts"); }

    static RunningStream sendDemo(const std::string& protocol, const std::string& address)
    {
        return sendMade("demo.ts", protocol, address);
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
    const int frames = instrument().framesShown();
    EXPECT_TRUE(waitUntil([&] { return instrument().framesShown() > frames + 25; }))
        << "the picture did not come back";
}

// The stream's clock knows nothing of the time that was waited for it: all of it would be too late for ever.
TEST_F(Play, AStreamThatComesOnTheAirLongAfterItWasChosenIsSeenAndHeard)
{
    selectUdp();
    controller().play(green.number);
    std::this_thread::sleep_for(std::chrono::seconds(4)); // behind by more than the elements wait for
    const RunningStream stream = sendDemo("udp", instrument().ethernetAddress().toStdString());
    expectProgram(green);
}

TEST_F(Play, ARecordingPlaysAsASourceLikeAnyOther)
{
    selectRecording("demo.ts");
    controller().play(red.number);
    expectProgram(red);
}

} // namespace
