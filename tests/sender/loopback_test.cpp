// tessary-send as a program, received on this machine's loopback interface.
#include "kit/samples.h"
#include "loopback.h"
#include "sending.h"

#include <csignal>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace {

using namespace tessary::test;

unsigned word(const Bytes& bytes, std::size_t at)
{
    return static_cast<unsigned>(bytes[at] << 24 | bytes[at + 1] << 16 | bytes[at + 2] << 8 | bytes[at + 3]);
}

TEST_F(Loopback, ASinglePassArrivesUnchanged)
{
    Sending sending({file, receiver.target("udp"), "--json"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    const auto& datagrams = receiver.datagrams();
    ASSERT_EQ(datagrams.size(), 143U);
    EXPECT_EQ(datagrams.front().size(), 1316U);
    EXPECT_EQ(datagrams.back().size(), 6U * 188U);
    EXPECT_EQ(joined(datagrams), stream);
    EXPECT_EQ(sending.figure("datagrams"), 143);
    EXPECT_EQ(sending.figure("ts_packets"), Packets);
    EXPECT_EQ(sending.figure("ts_bytes"), Packets * 188.0);
    EXPECT_EQ(sending.figure("frame_bits"), (Packets * 188.0 + 143 * 42) * 8);
    EXPECT_NEAR(sending.figure("target_ts_bits_per_second"), Rate, 100);
}

TEST_F(Loopback, NoDatagramGoesBeforeItsTime)
{
    Sending sending({file, receiver.target("udp"), "--json", "--bitrate", "4M"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    // From the first datagram, which may be late itself, to the last.
    EXPECT_GE(
        sending.figure("seconds") + sending.figure("max_late_us") / 1e6, Packets * 188 * 8 / 4e6 - 0.000'1);
}

TEST_F(Loopback, RtpDatagramsHaveConsecutiveNumbersAndTheStreamsTime)
{
    Sending sending({file, receiver.target("rtp"), "--json", "--bitrate", "8M"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    const auto& datagrams = receiver.datagrams();
    ASSERT_EQ(datagrams.size(), 143U);
    EXPECT_EQ(joined(datagrams, 12), stream);
    EXPECT_EQ(sending.figure("frame_bits"), (Packets * 188.0 + 143 * 54) * 8);
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
        ASSERT_EQ(word(datagrams[i], 0) >> 16, 0x8021U);
        EXPECT_EQ((word(datagrams[i], 0) - word(datagrams[0], 0)) & 0xFFFFU, i);
        EXPECT_EQ(word(datagrams[i], 8), word(datagrams[0], 8));
        const double ticks = static_cast<double>(i) * 7 * 188 * 8 / 8e6 * 90'000;
        EXPECT_NEAR(word(datagrams[i], 4) - word(datagrams[0], 4), ticks, 1);
    }
}

TEST_F(Loopback, ARepeatedStreamHasNoSeam)
{
    Sending sending({file, receiver.target("udp"), "--loop=3", "--json"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    const Bytes sent = joined(receiver.datagrams());
    ASSERT_EQ(sent.size(), 3 * stream.size());
    EXPECT_EQ(strictErrors(sent), 0U);
    EXPECT_EQ(sending.figure("passes"), 3);
    // Every PCR is where the rate puts it, over both seams; one pass is whole 90 kHz periods, so a seam may
    // be 299 ticks short.
    for (std::size_t at = 0; at < sent.size(); at += 188) {
        if ((sent[at + 3] & 0x20U) != 0) {
            EXPECT_NEAR(
                static_cast<double>(pcrOf(&sent[at])), static_cast<double>(at) * 8 / Rate * 27e6, 1000);
        }
    }
}

TEST_F(Loopback, WithoutRestampingEachPassIsTheFile)
{
    Sending sending({file, receiver.target("udp"), "--loop=2", "--no-restamp"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    Bytes twice = stream;
    twice.insert(twice.end(), stream.begin(), stream.end());
    EXPECT_EQ(joined(receiver.datagrams()), twice);
}

TEST_F(Loopback, ErrorsPutInAreFoundToTheUnit)
{
    Sending sending(
        {file, receiver.target("udp"), "--loop", "--duration", "2", "--cc-errors-per-second", "9", "--json"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    EXPECT_EQ(sending.figure("injected_cc_errors"), 18);
    EXPECT_EQ(strictErrors(joined(receiver.datagrams())), 18U);
}

TEST_F(Loopback, ErrorsKeepToTheirTime)
{
    Sending sending({file, receiver.target("udp"), "--loop", "--duration", "2", "--cc-errors-per-second", "8",
        "--cc-errors-from", "0.5", "--cc-errors-for", "1", "--json"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    EXPECT_EQ(sending.figure("injected_cc_errors"), 8);
    EXPECT_EQ(strictErrors(joined(receiver.datagrams())), 8U);
}

TEST_F(Loopback, TheCountLimitEndsInTheMiddleOfAFile)
{
    Sending sending({file, receiver.target("udp"), "--loop", "--count", "500", "--packets", "1",
        "--datagram-rate", "5k", "--json"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    const auto& datagrams = receiver.datagrams();
    ASSERT_EQ(datagrams.size(), 500U);
    for (const Bytes& datagram : datagrams)
        ASSERT_EQ(datagram.size(), 188U);
    EXPECT_EQ(sending.figure("target_ts_bits_per_second"), 5000 * 188 * 8);
}

TEST_F(Loopback, PacketsGrowTo204BytesOnDemand)
{
    Sending sending({file, receiver.target("udp"), "--packet-size", "204", "--count", "10"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    const auto& datagrams = receiver.datagrams();
    ASSERT_EQ(datagrams.size(), 10U);
    EXPECT_EQ(datagrams[0].size(), 7U * 204U);
    for (std::size_t i = 0; i < 7; ++i)
        EXPECT_TRUE(std::equal(&stream[i * 188], &stream[i * 188] + 188, &datagrams[0][i * 204]));
}

TEST_F(Loopback, ARecordingWith204BytePacketsArrivesUnchanged)
{
    const auto sample = samplePath("isdbt-204-b.ts");
    if (!sample.has_value())
        GTEST_SKIP() << missingSample("isdbt-204-b.ts");
    const Bytes bytes = bytesOfFile(*sample);
    Sending sending({*sample, receiver.target("udp"), "--bitrate", "4M"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    const auto& datagrams = receiver.datagrams();
    ASSERT_EQ(datagrams.size(), 47U);
    EXPECT_EQ(datagrams[0].size(), 7U * 204U);
    EXPECT_EQ(joined(datagrams), bytes);
}

TEST_F(Loopback, MulticastLeavesByTheNamedInterfaceWithTheTimeToLive)
{
    if (!receiver.join("239.255.77.78"))
        GTEST_SKIP() << "no multicast on loopback here";
    Sending sending(
        {file, receiver.target("udp", "239.255.77.78"), "--interface", "lo", "--ttl", "9", "--count", "20"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    EXPECT_EQ(receiver.datagrams().size(), 20U);
    EXPECT_EQ(receiver.timeToLive(), 9);
}

TEST_F(Loopback, ASignalEndsItWithTheCount)
{
    for (const int number : {SIGINT, SIGTERM}) {
        Receiver fresh;
        Sending sending({file, fresh.target("udp"), "--loop", "--json"});
        while (!fresh.hasSome())
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        sending.signal(number);
        ASSERT_EQ(sending.wait(), 0) << sending.output();
        EXPECT_EQ(sending.figure("datagrams"), static_cast<double>(fresh.datagrams().size()));
    }
}

TEST_F(Loopback, AStopFileEndsItWithTheCount)
{
    const std::string stop = ::testing::TempDir() + "tessary-sender-stop-" + std::to_string(::getpid());
    std::remove(stop.c_str());
    Sending sending({file, receiver.target("udp"), "--loop", "--json", "--stop-file", stop});
    while (!receiver.hasSome())
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::ofstream(stop) << "";
    EXPECT_EQ(sending.wait(), 0) << sending.output();
    std::remove(stop.c_str());
    EXPECT_EQ(sending.figure("datagrams"), static_cast<double>(receiver.datagrams().size()));
}

TEST_F(Loopback, FailuresHaveExitStatusesAndSayWhatToDo)
{
    const std::string target = receiver.target("udp");
    const std::vector<std::pair<std::vector<std::string>, int>> cases{
        {{file, target, "--interface", "no-such-link"}, 1},
        {{file, "udp://255.255.255.255:9"},
            1}, // broadcast needs a permission that the socket does not ask for
        {{file, target, "--packet-size", "7"}, 2},
        {{"/no/such/file.ts", target}, 3},
        {{writeFile("nopcr.ts", packet(100, 0)), target}, 3},
    };
    for (const auto& [arguments, status] : cases) {
        Sending sending(arguments);
        EXPECT_EQ(sending.wait(), status) << sending.output();
        EXPECT_EQ(sending.output().find("tessary-send: "), 0U) << sending.output();
        EXPECT_NE(sending.output().find(';'), std::string::npos) << "no remedy: " << sending.output();
    }
    std::remove(cases.back().first.front().c_str());
    EXPECT_TRUE(receiver.datagrams().empty());
}

} // namespace
