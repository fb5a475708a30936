#include "playsuite.h"

#include "demo/sound.h"

#include <cmath>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <sstream>
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

bool PlaySuite::shows(const Program& program, std::string* seen)
{
    try {
        double share = 0;
        const observe::Rgb colour = observe::dominantColour(
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

bool PlaySuite::sounds(const Program& program, std::string* heard)
{
    try {
        const auto sound = observe::readWav(instrument().sharedFile("sound.wav").toStdString());
        const observe::Tone tone = observe::strongestTone(sound, 0.5);
        if (heard != nullptr) {
            std::ostringstream words;
            words << tone.hertz << " Hz, share " << tone.share << ", " << sound.seconds() << " s of sound";
            *heard = words.str();
        }
        return std::abs(tone.hertz - program.hertz) <= 5 && tone.share > 0.8;
    } catch (const std::runtime_error& error) {
        if (heard != nullptr)
            *heard = error.what();
        return false;
    }
}

int PlaySuite::framesShown()
{
    QFile file(instrument().sharedFile("display.json"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return QJsonDocument::fromJson(file.readAll()).object()["frames"].toInt();
}

qint64 PlaySuite::bytesOfSound()
{
    return QFileInfo(instrument().sharedFile("sound.wav")).size();
}

void PlaySuite::expectPictures(const Program& program)
{
    std::string seen;
    EXPECT_TRUE(waitUntil([&] { return shows(program, &seen); })) << seen;
    const int frames = framesShown();
    EXPECT_TRUE(waitUntil([&] { return framesShown() > frames + 25; })) << "the picture stands still";
}

void PlaySuite::expectTone(const Program& program)
{
    std::string heard;
    EXPECT_TRUE(waitUntil([&] { return sounds(program, &heard); })) << heard;
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
    EXPECT_EQ(framesShown(), 0);
}

void PlaySuite::expectNoSound()
{
    const qint64 sound = bytesOfSound();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(bytesOfSound(), sound);
}

void PlaySuite::expectStandStill()
{
    const int frames = framesShown();
    expectNoSound();
    EXPECT_EQ(framesShown(), frames);
}

} // namespace tessary::test
