#include "systemsuite.h"

#include <chrono>
#include <random>
#include <thread>

namespace {

using namespace tessary;
using namespace tessary::test;

// What is sent; expected is no reply, and that "version?" is answered next:
//   commands as long as the burst's buffer
//   10,000 bursts of random bytes
//   numbers too large for any field

class Robustness : public SystemSuite
{
protected:
    void SetUp() override { m_pid = instrument().daemonPid(); }

    void TearDown() override
    {
        expectOnlyVersionAnswers();
        EXPECT_EQ(instrument().daemonPid(), m_pid) << "the daemon has ended and come back";
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

TEST_F(Robustness, NumbersTooLargeForTheirFieldAreTakenInSilence)
{
    sendAll({"server=UDP 239.0.0.1 1234\n", "play=99999999999999999999\n", "play=-1\n", "play=\n",
        "play=two\n", "server=UDP 239.0.0.1 -5\n", "server=UDP 239.0.0.1 70000\n", "scancur\n",
        "server=UDP_T2MI 239.0.0.1 1234 99999999999999 1\n", "server=UDP_T2MI 239.0.0.1 1234 70000 300\n",
        "scancur\n"});
}

} // namespace
