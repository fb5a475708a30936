#include "systemsuite.h"

#include "daemonlog.h"

#include <algorithm>
#include <ctime>

namespace {

using namespace tessary;
using namespace tessary::test;

// What happens at a start, in order                                     | seen by
// [staged kernel: cp, rm, sync, reboot]                                 | command log
// nmcli networking on                                                   | command log
// nmcli con del "Wired connection 1", .. "Wired connection 1_vlan"      | command log
// nmcli con add .. "Wired connection 1"                                 | command log
// HELLO !\r\n                                                           | serial line
// amixer PCM, amixer Headphone                                          | command log
// first command answered                                                | serial line
// smcroute: the first cycle of the timer sees the link                  | command log

std::int64_t now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

/// One instrument whose daemon each test starts itself.
class StartUp : public testing::Test
{
protected:
    static void SetUpTestSuite() { s_instrument = std::make_unique<Instrument>(false); }
    static void TearDownTestSuite() { s_instrument.reset(); }

    void TearDown() override
    {
        if (s_instrument->daemonPid() != 0)
            s_instrument->daemon("stop");
        const QByteArray finding = sanitizerFinding(s_instrument->daemonLog());
        EXPECT_TRUE(finding.isEmpty()) << finding.constData();
    }

    /// Starts the daemon, waits for its greeting and for the answer to a command that is sent at once.
    void start()
    {
        BurstLine line(*s_instrument);
        line.discardInput();
        m_started = now();
        s_instrument->daemon("start");
        client::Controller(line).waitForGreeting(BurstLine::patience);
        m_version = line.ask("version?\n");
    }

    /// The texts that the daemon gave to its shell since the start.
    std::vector<RecordedCommand> shellCommands() const
    {
        std::vector<RecordedCommand> found;
        for (const RecordedCommand& command : s_instrument->commands()) {
            if (command.time >= m_started && command.kind == "shell" && command.parent == "tessary")
                found.push_back(command);
        }
        return found;
    }

    /// Time of the first of them with this text; fails the test without one.
    std::int64_t timeOf(const QString& text) const
    {
        for (const RecordedCommand& command : shellCommands()) {
            if (command.text() == text)
                return command.time;
        }
        ADD_FAILURE() << "the daemon never ran: " << text.toStdString();
        return 0;
    }

    std::vector<LineEntry> bytesFromDaemon() const
    {
        std::vector<LineEntry> found;
        for (const LineEntry& entry : s_instrument->lineLog()) {
            if (entry.time >= m_started && entry.fromDaemon && !entry.bytes.isEmpty())
                found.push_back(entry);
        }
        return found;
    }

    static std::unique_ptr<Instrument> s_instrument;
    std::int64_t m_started = 0;
    std::string m_version;
};

std::unique_ptr<Instrument> StartUp::s_instrument;

TEST_F(StartUp, TheGreetingIsTheFirstThingOnTheLine)
{
    start();
    QByteArray received;
    for (const LineEntry& entry : bytesFromDaemon())
        received += entry.bytes;
    EXPECT_TRUE(received.startsWith("HELLO !\r\n")) << received.toStdString();
}

TEST_F(StartUp, ACommandSentRightAfterTheGreetingIsAnswered)
{
    start();
    EXPECT_TRUE(isVersionLine(m_version)) << m_version;
}

TEST_F(StartUp, StepsComeInTheirOrder)
{
    // The line's log is late on a busy machine. Seconds are spent in the last step before the greeting and in
    // each of the two after it, so that its place among them is certain.
    constexpr std::int64_t delay = 4; // s
    constexpr std::int64_t second = 1000000000; // ns
    s_instrument->misbehave({"nmcli", "--when", "add", "--delay", QString::number(delay)});
    s_instrument->misbehave({"amixer", "--delay", QString::number(delay)});
    start();
    s_instrument->misbehave({"nmcli", "--real"});
    s_instrument->misbehave({"amixer", "--real"});
    const std::int64_t greeted = bytesFromDaemon().at(0).time;
    const std::int64_t answered = bytesFromDaemon().back().time;
    const std::int64_t pcm = timeOf("amixer sset 'PCM' 80%");
    const std::vector<std::int64_t> order{
        timeOf("nmcli networking on"),
        timeOf("nmcli con del \"Wired connection 1\""),
        timeOf("nmcli con del \"Wired connection 1_vlan\""),
        timeOf("nmcli con add con-name \"Wired connection 1\" ifname eth0 type ethernet") + delay * second,
        pcm,
        timeOf("amixer sset 'Headphone' 92%"),
        answered,
    };
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_GE(greeted, order[3]) << "greeted before the DHCP set-up had ended";
    EXPECT_LT(greeted, pcm + delay * second) << "greeted after the mixer was set";
    EXPECT_EQ(shellCommands().at(0).text(), "nmcli networking on");
}

TEST_F(StartUp, TheLinkIsWatchedOnlyOnceTheTimerIsArmed)
{
    start();
    const auto joins = [this] {
        std::vector<std::int64_t> times;
        for (const RecordedCommand& command : s_instrument->commands()) {
            if (command.time >= m_started && command.kind == "program"
                && command.arguments.value(0).endsWith("smcroute"))
                times.push_back(command.time);
        }
        return times;
    };
    ASSERT_TRUE(waitUntil([&] { return !joins().empty(); })) << "the link never came up";
    EXPECT_GT(joins().front(), timeOf("amixer sset 'Headphone' 92%"));
}

TEST_F(StartUp, EthernetGetsItsAddressByDhcp)
{
    start();
    EXPECT_TRUE(s_instrument->ethernetAddress().startsWith("192.168.77."));
}

TEST_F(StartUp, AStagedKernelIsCopiedAndTheRebootIssuedBeforeNetworking)
{
    s_instrument->shell("mkdir -p /home/ondrak/Tessary/kernel/opt/staged && echo new "
                        ">/home/ondrak/Tessary/kernel/opt/staged/image");
    start();
    const std::vector<std::int64_t> order{
        timeOf("cp -r /home/ondrak/Tessary/kernel/* /"),
        timeOf("rm -r /home/ondrak/Tessary/kernel"),
        timeOf("sync"),
        timeOf("reboot"),
        timeOf("nmcli networking on"),
    };
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(s_instrument->shell("cat /opt/staged/image"), "new\n");
    EXPECT_FALSE(s_instrument->exec({"test", "-e", "/home/ondrak/Tessary/kernel"}).ok());
    EXPECT_TRUE(isVersionLine(m_version)) << "the rest of the start-up did not run";
}

TEST_F(StartUp, AKilledDaemonGreetsAgainAndKnowsNothingOfBefore)
{
    start();
    {
        BurstLine line(*s_instrument);
        client::Controller controller(line, controllerPatience);
        controller.scan();
        EXPECT_EQ(controller.playerStatus(), "running");
    }
    s_instrument->daemon("kill");
    start();
    BurstLine line(*s_instrument);
    EXPECT_EQ(client::Controller(line, controllerPatience).playerStatus(), "")
        << "a source has outlived the daemon";
}

} // namespace
