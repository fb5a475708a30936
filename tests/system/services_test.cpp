#include "playsuite.h"

#include <thread>

namespace {

using namespace tessary::test;

// services.ts, live over UDP or from the memory card. Each service has its own colour or tone; played one
// after another on one source, scanned once.
// Service        | picture | sound
// 1 television   | red     | 440 Hz
// 2 layer 2      | none    | 600 Hz
// 3 AAC          | none    | 800 Hz
// 4 AC-3         | none    | 1000 Hz
// 5 E-AC-3       | none    | 1200 Hz
// 6 picture only | green   | none
// 7 AC-4         | blue    | none: no decoder

constexpr Program television{1, {0xFF, 0x00, 0x00}, 440};
constexpr Program layer2{2, {}, 600};
constexpr Program pictureOnly{6, {0x00, 0xC0, 0x00}, 0};
constexpr Program ac4{7, {0x00, 0x00, 0xFF}, 0};

const QString services = "services.ts";

class Services : public PlaySuite, public testing::WithParamInterface<const char*>
{
protected:
    void SetUp() override
    {
        needMadeStream(services);
        if (isLive())
            m_stream.emplace(sendMade(services, "udp", instrument().ethernetAddress().toStdString()));
        isLive() ? selectUdp() : selectRecording(services);
    }

    static bool isLive() { return std::string(GetParam()) == "Live"; }

    static void expectRadio(const Program& program)
    {
        controller().play(program.number);
        expectTone(program);
        expectNoPicture();
    }

    static void expectPictureAlone(const Program& program)
    {
        controller().play(program.number);
        expectPictures(program);
        expectNoSound();
    }

    static void expectTelevision()
    {
        controller().play(television.number);
        expectProgram(television);
    }

private:
    std::optional<RunningStream> m_stream;
};

INSTANTIATE_TEST_SUITE_P(From, Services, testing::Values("Live", "TheRecording"),
    [](const auto& given) { return std::string(given.param); });

TEST_P(Services, RadioSoundsInEveryCoding)
{
    for (const Program& program : {layer2, Program{3, {}, 800}, Program{4, {}, 1000}, Program{5, {}, 1200}})
        expectRadio(program);
}

TEST_P(Services, APictureAloneAdvances)
{
    expectPictureAlone(pictureOnly);
}

TEST_P(Services, APictureAdvancesWhoseSoundIsNotDecoded)
{
    expectPictureAlone(ac4);
}

TEST_P(Services, KindsFollowOneAnotherWithoutANewScan)
{
    expectRadio(layer2);
    expectTelevision();
    expectPictureAlone(pictureOnly);
    expectRadio(layer2);
    expectPictureAlone(ac4);
    expectTelevision();
}

/// The end of what is played is the end, whatever was missing.
class RecordedServices : public PlaySuite
{
};

TEST_F(RecordedServices, RadioAndPictureEndWithTheRecording)
{
    needMadeStream(services);
    selectRecording(services, 13000); // some five seconds
    for (const int number : {layer2.number, pictureOnly.number, television.number}) {
        controller().play(number);
        EXPECT_EQ(controller().playerStatus(), "running");
        EXPECT_TRUE(waitUntil([] { return controller().playerStatus() == "stopped"; }))
            << "program " << number;
    }
}

} // namespace
