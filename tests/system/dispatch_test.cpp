#include "systemsuite.h"

#include <algorithm>
#include <chrono>

namespace {

using namespace tessary;
using namespace tessary::test;
using namespace std::string_literals;

// What is sent, as one burst                  | what comes back
// version? LF NUL version? LF                 | two version lines
// version? LF version? LF                     | one
// version?  (no line feed)                    | one, after the burst's 100 ms
// version?xyz LF, version? CR LF              | one (words are prefixes)
// version LF, Version? LF, foo LF, LF         | nothing
// NUL version? LF                             | nothing: the empty text hides the command
// STOP_DAB, dab.., outside DAB mode           | nothing
// server?                                     | nothing, on purpose
// tables and status before any source         | nothing

class Dispatch : public SystemSuite
{
protected:
    static int linesIn(const std::string& text)
    {
        return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
    }
};

TEST_F(Dispatch, CommandsSeparatedByNulAreAllDispatched)
{
    const std::string answer = line().ask("version?\n\0version?\n"s);
    EXPECT_EQ(linesIn(answer), 2) << answer;
    EXPECT_TRUE(isVersionLine(answer.substr(0, answer.size() / 2)));
}

TEST_F(Dispatch, OfCommandsSeparatedByLineFeedOnlyTheFirstIsDispatched)
{
    const std::string answer = line().ask("version?\nversion?\n");
    EXPECT_TRUE(isVersionLine(answer)) << answer;
}

TEST_F(Dispatch, BurstsThatFollowEachOtherAreEachDispatched)
{
    constexpr int bursts = 300;
    for (int i = 0; i < bursts; ++i)
        line().write("version?\n");
    EXPECT_EQ(linesIn(line().finish()), bursts);
}

TEST_F(Dispatch, ABurstWithoutLineFeedIsDispatchedAfterItsTime)
{
    using Clock = std::chrono::steady_clock;
    constexpr auto burstTime = std::chrono::milliseconds(100);
    const auto sent = Clock::now();
    line().write("version?");
    const std::string answer = line().readLine(BurstLine::patience);
    EXPECT_GE(Clock::now() - sent, burstTime); // with a line feed it would come within the poll's 5 ms
    EXPECT_TRUE(isVersionLine(answer)) << answer;
}

TEST_F(Dispatch, WordsAreMatchedAsPrefixes)
{
    EXPECT_TRUE(isVersionLine(line().ask("version?xyz\n")));
    EXPECT_TRUE(isVersionLine(line().ask("version?\r\n")));
}

TEST_F(Dispatch, UnknownWordsAreSilent)
{
    for (const char* word : {"version\n", "Version?\n", " version?\n", "foo\n", "\n", "play\n", "server\n",
             "scancu\n", "!07_X_&\n"}) {
        line().write(word);
        SCOPED_TRACE(word);
        expectOnlyVersionAnswers();
    }
}

TEST_F(Dispatch, AnEmptyTextBeforeTheCommandHidesIt)
{
    EXPECT_EQ(line().ask("\0version?\n"s), "");
}

TEST_F(Dispatch, DabTextsOutsideDabModeAreSilent)
{
    for (const std::string& text : {"STOP_DAB\n"s, "dab\n"s, "dab" + std::string(113, 'x') + "\n"}) {
        line().write(text);
        expectOnlyVersionAnswers();
    }
}

TEST_F(Dispatch, TheServerQueryIsSilentAndTheServerCommandToo)
{
    line().write("server?\n");
    expectOnlyVersionAnswers();
    line().write("server=RTP 10.0.0.5 5004\n");
    expectOnlyVersionAnswers();
}

TEST_F(Dispatch, QueriesBeforeAnySourceAreSilent)
{
    restartDaemon();
    for (const char* query : {"getnit?\n", "getpmt?\n", "streaminfo?\n", "videostatus?\n", "t2miframe?\n"}) {
        line().write(query);
        SCOPED_TRACE(query);
        expectOnlyVersionAnswers();
    }
}

TEST_F(Dispatch, TablesAreSilentWhileNoStreamComes)
{
    controller().setServer({client::StreamServer::Protocol::Udp, "239.0.0.99", 4999, 0, 0});
    controller().scan();
    for (const char* query : {"getnit?\n", "getpmt?\n", "streaminfo?\n"}) {
        line().write(query);
        SCOPED_TRACE(query);
        expectOnlyVersionAnswers();
    }
    EXPECT_EQ(controller().playerStatus(), "running");
}

TEST_F(Dispatch, AScanReplacesTheSourceAndAPlayKeepsIt)
{
    const auto constructed = [] {
        return instrument().daemonLog().count("------------------udpsource constr");
    };
    const auto destructed = [] {
        return instrument().daemonLog().count("------------------udpsource Destruct");
    };
    restartDaemon();
    controller().play(3);
    const int built = constructed();
    EXPECT_EQ(controller().playerStatus(), "running");
    controller().play(5);
    EXPECT_EQ(constructed(), built);
    const int torn = destructed();
    controller().scan();
    controller().scan();
    EXPECT_EQ(constructed(), built + 2);
    EXPECT_EQ(destructed(), torn + 2);
}

TEST_F(Dispatch, PingRunsTheWholeLineAndReturnsItsOutput)
{
    const std::string answer = line().ask("ping -c 1 127.0.0.1\n");
    EXPECT_NE(answer.find("1 packets transmitted, 1 received"), std::string::npos) << answer;
}

TEST_F(Dispatch, ManyCommandsInOneBurstAreAnsweredInTheirOrder)
{
    std::string burst;
    for (int i = 0; i < 20; ++i)
        burst += i % 2 == 0 ? "version?\n\0"s : "videostatus?\n\0"s;
    burst += "version?\n";
    controller().scan();
    const std::string answer = line().ask(burst);
    EXPECT_EQ(linesIn(answer), 11) << answer;
    std::size_t at = 0;
    for (int i = 0; i < 10; ++i) {
        at = answer.find("\nrunning", at);
        ASSERT_NE(at, std::string::npos) << "status " << i << " is missing or out of order: " << answer;
        ++at;
    }
}

} // namespace
