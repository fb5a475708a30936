#include "systemsuite.h"

#include <chrono>
#include <iostream>
#include <QFileInfo>
#include <thread>

namespace {

using namespace tessary;
using namespace tessary::test;

// demo.ts is on the air; 200 times the same command. Expected: descriptors, threads and resident memory end
// where they were after the tenth time, when every library has loaded what it keeps and the service has played
// for a while. Memory is compared at rest: what plays fills its queues, the sooner the busier the machine.

class Endurance : public SystemSuite
{
protected:
    static constexpr int rounds = 200;
    static constexpr int warmUp = 10;
    // The C library keeps freed memory in one arena per thread, and the pipelines' threads come and go, so
    // the resident size wanders by a few MiB. A lost pipeline, bus thread, stack or receive buffer would be
    // more than 100 KiB a round: 16 MiB and above.
    static constexpr long residentToleranceKiB = 5 * 1024;

    void SetUp() override
    {
        if (!QFileInfo::exists(madeStream("demo.ts")))
            FAIL() << madeStream("demo.ts").toStdString()
                   << " is missing; make it: bench/streams/make-streams build/streams";
        const std::string address = instrument().ethernetAddress().toStdString();
        controller().setServer({client::StreamServer::Protocol::Udp, address, 5040, 0, 0});
        m_stream.emplace(instrument().send(
            {madeStream("demo.ts"), QString::fromStdString("udp://" + address + ":5040"), "--loop"}));
        controller().scan();
    }
    void TearDown() override { m_stream.reset(); }

    /// The daemon's resources once the pipelines' idle pool threads have ended: when two looks a second apart
    /// agree.
    static DaemonResources settledResources()
    {
        DaemonResources last = instrument().daemonResources();
        const auto agree = [&last] {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            const DaemonResources next = instrument().daemonResources();
            const bool same = next.threads == last.threads && next.descriptors == last.descriptors;
            last = next;
            return same;
        };
        EXPECT_TRUE(waitUntil(agree));
        return last;
    }

    /// The daemon plays no more: it scans.
    static long residentAtRestKiB()
    {
        controller().scan();
        return settledResources().residentKiB;
    }

    static void expectSteady(const std::function<void(int)>& once)
    {
        DaemonResources early;
        long residentEarly = 0;
        for (int round = 1; round <= rounds; ++round) {
            once(round);
            if (round != warmUp)
                continue;
            early = settledResources();
            residentEarly = residentAtRestKiB();
        }
        ASSERT_GT(early.descriptors, 0);
        // A pool's thread ends when it has had nothing to do for 15 to 30 s.
        DaemonResources late;
        const auto asEarly = [&] {
            late = instrument().daemonResources();
            return late.descriptors <= early.descriptors && late.threads <= early.threads;
        };
        EXPECT_TRUE(waitUntil(asEarly));
        const long residentLate = residentAtRestKiB();
        std::cout << "after " << warmUp << ": " << early.descriptors << " descriptors, " << early.threads
                  << " threads, " << residentEarly << " KiB; after " << rounds << ": " << late.descriptors
                  << ", " << late.threads << ", " << residentLate << " KiB\n";
        EXPECT_LE(residentLate, residentEarly + residentToleranceKiB);
    }

    std::optional<RunningStream> m_stream;
};

TEST_F(Endurance, TwoHundredScansLeaveNothingBehind)
{
    expectSteady([](int) { controller().scan(); });
    EXPECT_TRUE(waitUntil([] { return !controller().streamInfo().empty(); }))
        << "the last scan finds nothing";
}

TEST_F(Endurance, TwoHundredPlaysLeaveNothingBehind)
{
    expectSteady([](int round) {
        controller().play(1 + round % 3);
        EXPECT_EQ(controller().playerStatus(), "running");
    });
}

} // namespace
