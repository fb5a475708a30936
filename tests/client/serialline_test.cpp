#include "client/lineerror.h"
#include "client/serialline.h"
#include "ptypair.h"

#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

using namespace tessary::client;
using std::chrono::milliseconds;
using tessary::test::PtyPair;

namespace {

template <typename Operation> LineError::Kind errorOf(Operation operation, std::string* text = nullptr)
{
    try {
        operation();
    } catch (const LineError& error) {
        if (text != nullptr)
            *text = error.what();
        return error.kind();
    }
    ADD_FAILURE() << "no LineError was thrown";
    return LineError::Kind::Failed;
}

TEST(SerialLine, NamesCauseAndRemedyForAPortThatDoesNotExist)
{
    std::string text;
    EXPECT_EQ(errorOf([] { SerialLine line("/dev/no-such-port"); }, &text), LineError::Kind::CannotOpen);
    EXPECT_NE(text.find("/dev/no-such-port"), std::string::npos);
    EXPECT_NE(text.find("No such file"), std::string::npos);
    EXPECT_NE(text.find("bench/instrument run"), std::string::npos);
}

TEST(SerialLine, RefusesAFileThatIsNoTerminal)
{
    EXPECT_EQ(errorOf([] { SerialLine line("/dev/null"); }), LineError::Kind::NotATerminal);
}

TEST(SerialLine, SetsThePortRawAt115200Baud)
{
    const PtyPair pty;
    const SerialLine line(pty.path());
    const termios set = pty.settings();
    EXPECT_EQ(::cfgetispeed(&set), static_cast<speed_t>(B115200));
    EXPECT_EQ(::cfgetospeed(&set), static_cast<speed_t>(B115200));
    EXPECT_EQ(set.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0U);
    EXPECT_EQ(set.c_oflag & OPOST, 0U);
    EXPECT_EQ(set.c_iflag & (ICRNL | INLCR | IXON | IXOFF | ISTRIP), 0U);
    EXPECT_EQ(set.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), static_cast<tcflag_t>(CS8));
}

TEST(SerialLine, CarriesEveryByteValueUnchangedBothWays)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    std::string all;
    for (int value = 0; value < 256; ++value)
        all.push_back(static_cast<char>(value));
    line.write(all);
    EXPECT_EQ(pty.receive(20000), all);
    pty.send(all);
    EXPECT_EQ(line.readExactly(256, milliseconds(20000)), all);
}

TEST(SerialLine, KeepsWhatArrivedBeforeItWasOpened)
{
    const PtyPair pty;
    pty.send("HELLO !\r\n");
    SerialLine line(pty.path());
    EXPECT_EQ(line.readLine(milliseconds(20000)).substr(0, 7), "HELLO !");
}

TEST(SerialLine, ReadsLineByLineAndKeepsTheRest)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    pty.send("one\ntwo\nthr");
    EXPECT_EQ(line.readLine(milliseconds(20000)), "one\n");
    EXPECT_EQ(line.readLine(milliseconds(20000)), "two\n");
    EXPECT_EQ(errorOf([&] { line.readLine(milliseconds(20)); }), LineError::Kind::TimedOut);
    pty.send("ee\n");
    EXPECT_EQ(line.readLine(milliseconds(20000)), "three\n");
}

TEST(SerialLine, ReadsExactlyAndSaysHowMuchWasMissing)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    pty.send("12345");
    EXPECT_EQ(line.readExactly(3, milliseconds(20000)), "123");
    std::string text;
    EXPECT_EQ(errorOf([&] { line.readExactly(28, milliseconds(20)); }, &text), LineError::Kind::TimedOut);
    EXPECT_NE(text.find("28 bytes, got 2 bytes"), std::string::npos) << text;
    EXPECT_EQ(line.readExactly(2, milliseconds(20000)), "45");
}

TEST(SerialLine, ReadUntilSilenceBridgesShortGaps)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    const auto sender = std::async(std::launch::async, [&pty] {
        for (const char* part : {"<SDT>", "abc", "def"}) {
            pty.send(part);
            std::this_thread::sleep_for(milliseconds(20));
        }
    });
    EXPECT_EQ(line.readUntilSilence(milliseconds(20000), milliseconds(2000)), "<SDT>abcdef");
}

TEST(SerialLine, ReadUntilSilenceIsEmptyWhenNothingComes)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    EXPECT_EQ(line.readUntilSilence(milliseconds(20), milliseconds(20)), "");
}

TEST(SerialLine, DiscardInputDropsWhatCameBefore)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    pty.send("old\nold");
    EXPECT_EQ(line.readLine(milliseconds(20000)), "old\n");
    line.discardInput();
    pty.send("new\n");
    EXPECT_EQ(line.readLine(milliseconds(20000)), "new\n");
}

TEST(SerialLine, SaysThatTheOtherEndIsGone)
{
    PtyPair pty;
    SerialLine line(pty.path());
    pty.hangUp();
    std::string text;
    EXPECT_EQ(errorOf([&] { line.readLine(milliseconds(20000)); }, &text), LineError::Kind::HungUp);
    EXPECT_NE(text.find("plug the adapter in again"), std::string::npos);
    EXPECT_EQ(errorOf([&] { line.write("version?\n"); }), LineError::Kind::HungUp);
}

TEST(SerialLine, WriteTimesOutWhenNobodyReads)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    const std::string much(1000000, 'x');
    EXPECT_EQ(errorOf([&] { line.write(much, milliseconds(50)); }), LineError::Kind::TimedOut);
}

TEST(SerialLine, WaitingEndsWhenItIsStopped)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    int questions = 0;
    line.stopWhen([&] { return ++questions > 2; });
    EXPECT_EQ(errorOf([&] { line.readLine(milliseconds(20000)); }), LineError::Kind::Stopped);
    EXPECT_EQ(questions, 3);
    line.stopWhen([] { return false; });
    EXPECT_EQ(errorOf([&] { line.readLine(milliseconds(250)); }), LineError::Kind::TimedOut);
    pty.send("one\n");
    EXPECT_EQ(line.readLine(milliseconds(20000)), "one\n");
}

TEST(SerialLine, MovesWithWhatItHasRead)
{
    const PtyPair pty;
    SerialLine first(pty.path());
    pty.send("one\ntwo\n");
    EXPECT_EQ(first.readLine(milliseconds(20000)), "one\n");
    SerialLine second(std::move(first));
    EXPECT_EQ(second.readLine(milliseconds(20000)), "two\n");
}

TEST(LineErrorText, IsCauseAndRemedy)
{
    const LineError both(LineError::Kind::TimedOut, "no answer; check the cable; then the speed");
    EXPECT_EQ(both.cause(), "no answer");
    EXPECT_EQ(both.remedy(), "check the cable; then the speed");
    const LineError cause(LineError::Kind::Failed, "reading failed");
    EXPECT_EQ(cause.cause(), "reading failed");
    EXPECT_EQ(cause.remedy(), "");
}

TEST(SerialLine, TellsWhoHasThePort)
{
    const PtyPair pty;
    SerialLine first(pty.path());
    first.lock();
    SerialLine second(pty.path());
    try {
        second.lock();
        FAIL() << "two have the port";
    } catch (const LineError& error) {
        EXPECT_EQ(error.kind(), LineError::Kind::CannotOpen);
        EXPECT_NE(std::string(error.what()).find("(client_test, PID " + std::to_string(::getpid()) + ")"),
            std::string::npos)
            << error.what();
    }
}

TEST(SerialLine, ShowsWhatGoesOverIt)
{
    const PtyPair pty;
    SerialLine line(pty.path());
    std::string seen;
    line.tap([&](SerialLine::Direction direction, std::string_view bytes) {
        seen += (direction == SerialLine::Direction::To ? ">" : "<") + std::string(bytes);
    });
    line.write("version?\n");
    pty.send("SV: x\n");
    EXPECT_EQ(line.readLine(std::chrono::milliseconds(20000)), "SV: x\n");
    EXPECT_EQ(seen, ">version?\n<SV: x\n");
}

} // namespace
