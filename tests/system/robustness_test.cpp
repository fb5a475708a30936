#include "systemsuite.h"

#include <chrono>
#include <random>
#include <thread>

namespace {

using namespace tessary;
using namespace tessary::test;

// What is sent; expected is no reply, and that "version?" is answered next:
//   2000 bytes without NUL, with and without line feeds
//   10,000 bursts of random bytes
//   words cut short, words with a wrong end
//   a T2-MI server without PID
//   an address or a port that is no number, then each command that builds a source
//   numbers too large for any field
//   T2-MI frames of a source that is none

class Robustness : public SystemSuite
{
protected:
    void SetUp() override { m_pid = instrument().daemonPid(); }

    void TearDown() override
    {
        expectOnlyVersionAnswers();
        EXPECT_EQ(instrument().daemonPid(), m_pid) << "the daemon has ended and come back";
    }

    /// A daemon that knows no source and has the settings of a start.
    void startAfresh()
    {
        restartDaemon();
        m_pid = instrument().daemonPid();
    }

    /// Sends commands that have no reply, each after the daemon has taken the one before.
    static void sendAll(std::initializer_list<const char*> commands)
    {
        for (const char* command : commands) {
            SCOPED_TRACE(command);
            line().write(command);
            expectOnlyVersionAnswers();
        }
    }

private:
    qint64 m_pid = 0;
};

TEST_F(Robustness, TwoThousandBytesWithoutNulAreTakenInSilence)
{
    line().write(std::string(2000, 'x'));
    expectOnlyVersionAnswers();
    line().write(std::string(1999, '\xFF') + "\n");
    expectOnlyVersionAnswers();
    std::string lines;
    while (lines.size() < 2000)
        lines += "no such command\n";
    line().write(lines);
}

TEST_F(Robustness, ACommandAsLongAsTheBufferIsTakenInSilence)
{
    for (const std::size_t size : {638U, 639U, 640U, 641U}) {
        line().write("server=" + std::string(size - 8, 'a') + "\n");
        expectOnlyVersionAnswers();
    }
    line().write(std::string(640, '\0'));
}

TEST_F(Robustness, TenThousandRandomBurstsAreTakenInSilence)
{
    constexpr unsigned seed = 20260713;
    constexpr auto pollPeriod = std::chrono::milliseconds(5); // a burst for each poll
    constexpr std::size_t atATime =
        600; // of the daemon's 640; the last byte is a line feed, which ends it at once
    constexpr int bursts = 10000;
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> value(0, 255);
    std::uniform_int_distribution<std::size_t> size(0, 80);
    auto next = std::chrono::steady_clock::now();
    std::string waiting;
    for (int i = 0; i < bursts; ++i) {
        std::string burst(size(random), '\0');
        for (char& byte : burst)
            byte = static_cast<char>(value(random));
        // Where the daemon does not get its turn each time, some come together, as on a busy line.
        if (waiting.size() + burst.size() >= atATime || (!waiting.empty() && line().isTaken())) {
            line().write(waiting);
            waiting.clear();
        }
        waiting += burst + "\n";
        next += pollPeriod;
        std::this_thread::sleep_until(next);
    }
    line().write(waiting);
}

TEST_F(Robustness, WordsCutShortOrWronglyEndedAreTakenInSilence)
{
    std::mt19937 random(4711);
    const std::vector<std::string> words{"interface?", "server?", "scancur", "streaminfo?", "videostatus?",
        "getnit?", "getpmt?", "getethernetmes?", "version?", "t2miframe?", "ipstatus?", "!07_S_&",
        "!0C_D_IX:", "!16_O_AX:", "PVR_reclist", "START_DAB"};
    for (const std::string& word : words) {
        std::uniform_int_distribution<std::size_t> length(1, word.size() - 1);
        line().write(word.substr(0, length(random)) + "\n");
        expectOnlyVersionAnswers();
        std::string wrong = word;
        wrong[wrong.size() / 2] = '~';
        line().write(std::string(wrong).append(1, '\0').append(wrong).append("\n"));
        expectOnlyVersionAnswers();
    }
}

TEST_F(Robustness, AT2miServerWithoutPidIsTakenInSilence)
{
    sendAll({"server=UDP_T2MI 239.0.0.1 1234\n", "server=RTP_T2MI 239.0.0.1 1234\n",
        "server=UDP_T2MI 239.0.0.1 1234 64\n", "server=UDP_T2MI 239.0.0.1 1234 pid plp\n",
        "server=UDP_T2MI\n"});
}

TEST_F(Robustness, AnAddressThatIsNoNumberBuildsNoSource)
{
    startAfresh();
    sendAll({"server=UDP here 1234\n", "scancur\n", "play=1\n", "sendts\n", "server=RTP there 1234\n",
        "scancur\n", "play=1\n"});
    EXPECT_EQ(controller().playerStatus(), "");
}

TEST_F(Robustness, APortThatIsNoNumberBuildsNoSource)
{
    startAfresh();
    sendAll({"server=UDP 239.0.0.1 port\n", "scancur\n", "play=1\n", "server=RTP 239.0.0.1 port\n",
        "sendts\n", "server=UDP 239.0.0.1 99999999999\n", "scancur\n"});
    EXPECT_EQ(controller().playerStatus(), "");
}

TEST_F(Robustness, NumbersTooLargeForTheirFieldAreTakenInSilence)
{
    sendAll({"server=UDP 239.0.0.1 1234\n", "play=99999999999999999999\n", "play=-1\n", "play=\n",
        "play=two\n", "server=UDP 239.0.0.1 -5\n", "server=UDP 239.0.0.1 70000\n", "scancur\n",
        "server=UDP_T2MI 239.0.0.1 1234 99999999999999 1\n", "server=UDP_T2MI 239.0.0.1 1234 70000 300\n",
        "scancur\n"});
}

TEST_F(Robustness, ServerTextsWithMissingOrTooManyFieldsAreTakenInSilence)
{
    sendAll({"server=\n", "server= \n", "server=UDP\n", "server=UDP \n", "server=UDP  \n",
        "server=UDP 239.0.0.1\n", "server=239.0.0.1 1234\n", "server=UDP 239.0.0.1 1234 1 2 3 4 5 6\n",
        "server=    \n"});
}

TEST_F(Robustness, T2miFramesOfASourceThatHasNoneAreSilent)
{
    startAfresh();
    // No source at all, then sources of the other kinds than the protocol now set.
    sendAll({"server=UDP_T2MI 239.0.0.1 1234 64 1\n", "t2miframe?\n", "server=RTP_T2MI 239.0.0.1 1234 64 1\n",
        "t2miframe?\n", "server=UDP 239.0.0.1 1234\n", "scancur\n", "t2miframe?\n",
        "server=UDP_T2MI 239.0.0.1 1234 64 1\n", "t2miframe?\n", "server=RTP_T2MI 239.0.0.1 1234 64 1\n",
        "t2miframe?\n", "scancur\n", "server=UDP_T2MI 239.0.0.1 1234 64 1\n", "t2miframe?\n"});
}

} // namespace
