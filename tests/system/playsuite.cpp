#include "playsuite.h"

#include <QFile>
#include <QFileInfo>
#include <thread>

namespace tessary::test {

void PlaySuite::needMadeStream(const QString& name)
{
    if (!QFileInfo::exists(madeStream(name)))
        FAIL() << madeStream(name).toStdString()
               << " is missing; make it: bench/streams/make-streams build/streams";
}

RunningStream PlaySuite::sendMade(
    const QString& name, const std::string& protocol, const std::string& address)
{
    const QString url = QString::fromStdString(protocol + "://" + address + ":5030");
    return instrument().send({madeStream(name), url, "--loop", "--interface", "uplink"});
}

void PlaySuite::selectUdp()
{
    controller().setServer(
        {client::StreamServer::Protocol::Udp, instrument().ethernetAddress().toStdString(), 5030, 0, 0});
    controller().scan();
}

void PlaySuite::selectRecording(const QString& name, qint64 packets)
{
    QFile::remove(instrument().sharedFile("record.ts"));
    ASSERT_TRUE(QFile::copy(madeStream(name), instrument().sharedFile("record.ts")));
    if (packets > 0) {
        ASSERT_TRUE(QFile::resize(instrument().sharedFile("record.ts"), packets * 188));
    }
    instrument().shell(
        "mkdir -p /run/media/mmcblk1p1 && mv /run/bench/record.ts /run/media/mmcblk1p1/record.ts");
    controller().scanRecording();
    EXPECT_TRUE(waitUntil([] { return controller().playerStatus() == "stopped"; }));
}

qint64 PlaySuite::bytesOfSound()
{
    return QFileInfo(instrument().sharedFile("sound.wav")).size();
}

void PlaySuite::expectPictures(const Program& program)
{
    const std::string display = instrument().sharedFile("display.ppm").toStdString();
    observe::Judgement seen;
    EXPECT_TRUE(waitUntil([&] { return (seen = observe::judgePicture(display, program.colour)).right; }))
        << seen.words;
    const int frames = instrument().framesShown();
    EXPECT_TRUE(waitUntil([&] { return instrument().framesShown() > frames + 25; }))
        << "the picture stands still";
}

void PlaySuite::expectTone(const Program& program)
{
    const std::string loudspeaker = instrument().sharedFile("sound.wav").toStdString();
    observe::Judgement heard;
    EXPECT_TRUE(waitUntil([&] {
        return (heard = observe::judgeSound(loudspeaker, program.hertz, 0.5)).right;
    })) << heard.words;
    const qint64 bytes = bytesOfSound();
    EXPECT_TRUE(waitUntil([&] { return bytesOfSound() > bytes + 50000; })) << "the sound has ended";
}

void PlaySuite::expectProgram(const Program& program)
{
    expectPictures(program);
    expectTone(program);
    EXPECT_EQ(controller().playerStatus(), "running");
}

void PlaySuite::expectNoPicture()
{
    EXPECT_EQ(instrument().framesShown(), 0);
}

void PlaySuite::expectNoSound()
{
    const qint64 sound = bytesOfSound();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(bytesOfSound(), sound);
}

void PlaySuite::expectStandStill()
{
    const int frames = instrument().framesShown();
    expectNoSound();
    EXPECT_EQ(instrument().framesShown(), frames);
}

} // namespace tessary::test
