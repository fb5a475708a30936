// Multicast membership with a recorded smcroute; the texts for the console arrive at the far end of its line.
#include "support/privatemachine.h"
#include "support/steps.h"
#include "support/ttyfixture.h"
#include "system/mydata.h"
#include "system/network.h"

#include <gtest/gtest.h>

namespace {

using Calls = std::vector<std::string>;

const std::string bar = "$$$$$$$$$$$$$$$$$$$$$$$$$$$$$";

class MulticastRouting : public ControllerLine
{
protected:
    void SetUp() override
    {
        ControllerLine::SetUp();
        data = MyData();
        data.serverAddress = "239.0.0.1";
        data.vlanId = "100";
        network.joinRequested = true;
    }

    std::string consoleText() { return console().readUntilQuiet(); }

    /// A smcroute whose joins fail with this text while `failures` last.
    void addFailingJoins(const std::string& errors, int failures)
    {
        programs.addScript("smcroute",
            "cd " + programs.folder() + "\n[ \"$1\" = -j ] || exit 0\n"
                + "read n 2>/dev/null <left || n=" + std::to_string(failures)
                + "\n[ \"$n\" -gt 0 ] || exit 0\nprintf '%s\\n' $((n - 1)) >left\nprintf '%s' '" + errors
                + "' >&2\nexit 1");
    }

    RecordedPrograms programs;
    Network network;
};

} // namespace

TEST_F(MulticastRouting, DaemonIsStartedOnceAndItsErrorsGoToTheConsole)
{
    programs.add("smcroute", "not shown", "Another daemon runs already.\n", 1);
    network.StartSmcroute();
    network.StartSmcroute();
    EXPECT_EQ(programs.calls(), Calls{"smcroute|-d"});
    EXPECT_EQ(consoleText(), "Another daemon runs already.\nStartSmcroute()\r\n");
    EXPECT_TRUE(network.smcrouteStarted); // whatever the outcome
}

TEST_F(MulticastRouting, MissingProgramCountsAsStartedToo)
{
    network.StartSmcroute();
    EXPECT_TRUE(network.smcrouteStarted);
    EXPECT_EQ(consoleText(), "StartSmcroute()\r\n");
}

TEST_F(MulticastRouting, StoppingTwiceStopsOnce)
{
    programs.add("smcroute");
    network.StartSmcroute();
    network.StopSmcroute();
    network.StopSmcroute();
    EXPECT_EQ(programs.calls(), (Calls{"smcroute|-d", "smcroute|-k"}));
    EXPECT_EQ(consoleText(), "StartSmcroute()\r\nStopSmcroute()\r\n");
    EXPECT_FALSE(network.smcrouteStarted);
}

TEST_F(MulticastRouting, StopWithoutStartDoesNothing)
{
    programs.add("smcroute");
    network.StopSmcroute();
    EXPECT_EQ(programs.calls(), Calls{});
    EXPECT_EQ(consoleText(), "");
}

TEST_F(MulticastRouting, JoinStartsTheDaemonFirstAndLowersTheRequest)
{
    programs.add("smcroute");
    network.SendJoinMulticast();
    EXPECT_EQ(programs.calls(), (Calls{"smcroute|-d", "smcroute|-j|eth0|239.0.0.1"}));
    EXPECT_EQ(consoleText(),
        "StartSmcroute()\r\nSendJoinMulticast()\r\nsmcroute -j eth0 239.0.0.1" + bar + "  " + bar);
    EXPECT_FALSE(network.joinRequested);
}

TEST_F(MulticastRouting, WithVlanTheSubInterfaceJoins)
{
    programs.add("smcroute");
    data.vlan = true;
    network.smcrouteStarted = true;
    network.SendJoinMulticast();
    EXPECT_EQ(programs.calls(), Calls{"smcroute|-j|eth0.100|239.0.0.1"});
}

TEST_F(MulticastRouting, ThreeFailedJoinsRestartTheDaemonThreeTimesAndKeepTheRequest)
{
    addFailingJoins("No such device", 99);
    network.smcrouteStarted = true;
    Steps steps(programs);
    network.SendJoinMulticast();
    const Calls once{
        "smcroute|-j|eth0|239.0.0.1", "smcroute|-k", "wait 100000", "smcroute|-d", "wait 1000000"};
    const std::string onceText =
        "SendJoinMulticast()\r\nsmcroute -j eth0 239.0.0.1" + bar + " No such device " + bar;
    Calls expected;
    std::string expectedText;
    for (int i = 0; i < 3; ++i) {
        expected.insert(expected.end(), once.begin(), once.end());
        expectedText += onceText;
    }
    EXPECT_EQ(steps.take(), expected);
    EXPECT_EQ(consoleText(), expectedText);
    EXPECT_TRUE(network.joinRequested);
    EXPECT_TRUE(network.smcrouteStarted);
}

TEST_F(MulticastRouting, JoinThatSucceedsAtTheSecondAttemptEndsThere)
{
    addFailingJoins("smcroute: unknown interface eth0", 1);
    network.smcrouteStarted = true;
    Steps steps(programs);
    network.SendJoinMulticast();
    EXPECT_EQ(steps.take(),
        (Calls{"smcroute|-j|eth0|239.0.0.1", "smcroute|-k", "wait 100000", "smcroute|-d", "wait 1000000",
            "smcroute|-j|eth0|239.0.0.1"}));
    EXPECT_FALSE(network.joinRequested);
}

TEST_F(MulticastRouting, AnyOtherErrorTextCountsAsJoined)
{
    for (const char* errors : {"Address already in use", "no such device", "unknown interface lo"}) {
        programs.add("smcroute", "No such device", errors, 1); // only the error output counts
        programs.forget();
        network.smcrouteStarted = true;
        network.joinRequested = true;
        network.SendJoinMulticast();
        EXPECT_EQ(programs.calls(), Calls{"smcroute|-j|eth0|239.0.0.1"}) << errors;
        EXPECT_FALSE(network.joinRequested) << errors;
    }
}

TEST_F(MulticastRouting, LeaveChangesNoFlag)
{
    programs.add("smcroute");
    network.SendLeaveMulticast();
    data.vlan = true;
    network.SendLeaveMulticast();
    EXPECT_EQ(programs.calls(), (Calls{"smcroute|-l|eth0|239.0.0.1", "smcroute|-l|eth0.100|239.0.0.1"}));
    EXPECT_EQ(consoleText(), "smcroute -l eth0 239.0.0.1smcroute -l eth0.100 239.0.0.1");
    EXPECT_TRUE(network.joinRequested);
    EXPECT_FALSE(network.smcrouteStarted);
}
