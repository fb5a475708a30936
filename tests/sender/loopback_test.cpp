// tessary-send as a program, received on this machine's loopback interface.

#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pcap/pcap.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "captures.h"
#include "kit/samples.h"

namespace {

using namespace tessary::test;

/// Receives datagrams on a port of its own until it is told to finish; a thread of its own empties the
/// socket.
class Receiver
{
public:
    Receiver()
        : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int bytes = 8'000'000; // more than a test sends, so that a busy machine loses nothing
        if (::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0)
            ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
        const int on = 1;
        ::setsockopt(m_socket, IPPROTO_IP, IP_RECVTTL, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        socklen_t size = sizeof address;
        if (::bind(m_socket, reinterpret_cast<sockaddr*>(&address), size) != 0
            || ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
            ADD_FAILURE() << "no port on loopback";
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { receive(); });
    }

    ~Receiver()
    {
        finish();
        ::close(m_socket);
    }

    bool join(const char* group)
    {
        ip_mreqn request{};
        ::inet_pton(AF_INET, group, &request.imr_multiaddr);
        request.imr_ifindex = static_cast<int>(::if_nametoindex("lo"));
        return ::setsockopt(m_socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
    }

    /// All datagrams so far; call when the sender has ended. Loopback delivers before the sender's call
    /// returns.
    const std::vector<Bytes>& datagrams()
    {
        finish();
        return m_datagrams;
    }

    std::string target(const std::string& scheme, const std::string& host = "127.0.0.1") const
    {
        return scheme + "://" + host + ":" + std::to_string(m_port);
    }

    int timeToLive() const { return m_timeToLive; }
    bool hasSome() const { return m_some; }

private:
    void finish()
    {
        m_finish = true;
        if (m_thread.joinable())
            m_thread.join();
    }

    void receive()
    {
        pollfd waiting{m_socket, POLLIN, 0};
        for (;;) {
            const bool last = m_finish;
            while (::poll(&waiting, 1, last ? 0 : 20) == 1)
                takeOne();
            if (last)
                return;
        }
    }

    void takeOne()
    {
        Bytes bytes(65536);
        std::array<char, 64> control{};
        iovec data{bytes.data(), bytes.size()};
        msghdr message{};
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = ::recvmsg(m_socket, &message, 0);
        if (size < 0)
            return;
        const cmsghdr* header = CMSG_FIRSTHDR(&message);
        if (header != nullptr && header->cmsg_type == IP_TTL)
            m_timeToLive = *reinterpret_cast<const int*>(CMSG_DATA(header));
        bytes.resize(static_cast<std::size_t>(size));
        m_datagrams.push_back(std::move(bytes));
        m_some = true;
    }

    int m_socket;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_finish{false};
    std::atomic<bool> m_some{false};
    std::atomic<int> m_timeToLive{0};
    std::vector<Bytes> m_datagrams; // of the thread, until it is joined
    std::thread m_thread;
};

/// tessary-send running; its outputs go to one file.
class Sending
{
public:
    explicit Sending(std::vector<std::string> arguments)
        : m_output(writeFile("output.txt", {}))
    {
        arguments.insert(arguments.begin(), TESSARY_SEND);
        std::vector<char*> pointers;
        pointers.reserve(arguments.size() + 1);
        for (std::string& argument : arguments)
            pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, 1, m_output.c_str(), O_WRONLY | O_APPEND, 0);
        ::posix_spawn_file_actions_adddup2(&actions, 1, 2);
        if (::posix_spawn(&m_process, TESSARY_SEND, &actions, nullptr, pointers.data(), environ) != 0)
            ADD_FAILURE() << TESSARY_SEND << " can not be started";
        ::posix_spawn_file_actions_destroy(&actions);
    }

    ~Sending()
    {
        if (m_process > 0) {
            ::kill(m_process, SIGKILL);
            wait();
        }
        std::remove(m_output.c_str());
    }

    /// Exit status, or -1 when a signal ended it.
    int wait()
    {
        int status = 0;
        ::waitpid(m_process, &status, 0);
        m_process = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    void signal(int number) const { ::kill(m_process, number); }

    std::string output() const
    {
        std::ifstream file(m_output);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    /// A number of the JSON line; -1 when it is not there.
    double figure(const std::string& name) const
    {
        const std::string text = output();
        const std::size_t at = text.find("\"" + name + "\": ");
        return at == std::string::npos ? -1 : std::strtod(text.c_str() + at + name.size() + 4, nullptr);
    }

private:
    std::string m_output;
    pid_t m_process = -1;
};

/// The datagrams one after another, each without its header.
Bytes joined(const std::vector<Bytes>& datagrams, std::size_t headerBytes = 0)
{
    Bytes all;
    for (const Bytes& datagram : datagrams)
        append(all, {datagram.begin() + static_cast<std::ptrdiff_t>(headerBytes), datagram.end()});
    return all;
}

unsigned word(const Bytes& bytes, std::size_t at)
{
    return static_cast<unsigned>(bytes[at] << 24 | bytes[at + 1] << 16 | bytes[at + 2] << 8 | bytes[at + 3]);
}

class Loopback : public ::testing::Test
{
protected:
    static constexpr std::size_t Packets = 1000; // no multiple of 7
    static constexpr double Rate = 8e6;

    const Bytes stream = smallStream(Packets, Rate);
    const std::string file = writeFile("loopback.ts", stream);
    Receiver receiver;

    void TearDown() override { std::remove(file.c_str()); }
};

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
    EXPECT_GE(sending.figure("seconds"), Packets * 188 * 8 / 4e6 - 0.000'1);
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

/// Three datagrams of the stream, the last one long after the others.
std::vector<Captured> threeOf(const Bytes& stream)
{
    std::vector<Captured> three(3);
    for (std::size_t i = 0; i < three.size(); ++i) {
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(i * 1316);
        three[i].payload.assign(begin, begin + 1316);
    }
    three[1].timeNs = 1'000'000;
    three[2].timeNs = 300'000'000;
    return three;
}

TEST_F(Loopback, ACaptureIsSentWithItsOwnTiming)
{
    const std::string capture = writePcap("replay.pcap", threeOf(stream));
    Sending sending({capture, receiver.target("udp"), "--json"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    std::remove(capture.c_str());
    EXPECT_EQ(joined(receiver.datagrams()), Bytes(stream.begin(), stream.begin() + 3 * 1316));
    EXPECT_EQ(sending.figure("ts_packets"), 21);
    EXPECT_EQ(sending.figure("passes"), 1);
    EXPECT_GE(sending.figure("seconds"), 0.3);
}

TEST_F(Loopback, ACaptureOfRtpWantsAnRtpTarget)
{
    std::vector<Captured> three = threeOf(stream);
    for (Captured& datagram : three)
        datagram.payload = asRtp(datagram.payload);
    const std::string capture = writePcapng("replay-rtp.pcapng", three);
    Sending wrong({capture, receiver.target("udp")});
    EXPECT_EQ(wrong.wait(), 2) << wrong.output();
    EXPECT_NE(wrong.output().find("are RTP; write rtp://"), std::string::npos) << wrong.output();
    Sending right({capture, receiver.target("rtp"), "--json"});
    EXPECT_EQ(right.wait(), 0) << right.output();
    std::remove(capture.c_str());
    EXPECT_EQ(joined(receiver.datagrams(), 24), Bytes(stream.begin(), stream.begin() + 3 * 1316));
    EXPECT_EQ(right.figure("frame_bits"), 3 * (42 + 12 + 1316) * 8);
}

/// What passes through the loopback interface, by libpcap, which puts back the tag that the kernel takes off.
class Tap
{
public:
    explicit Tap(const std::string& filter)
        : m_handle(pcap_open_live("lo", 65535, 0, 10, nullptr))
    {
        if (m_handle == nullptr)
            return;
        bpf_program program{};
        pcap_compile(m_handle, &program, filter.c_str(), 1, PCAP_NETMASK_UNKNOWN);
        pcap_setfilter(m_handle, &program);
        pcap_freecode(&program);
        // lo shows what is sent a second time as received.
        pcap_setdirection(m_handle, PCAP_D_IN);
    }
    ~Tap()
    {
        if (m_handle != nullptr)
            pcap_close(m_handle);
    }
    Tap(const Tap&) = delete;
    Tap& operator=(const Tap&) = delete;

    bool isOpen() const { return m_handle != nullptr; }

    /// Waits for the next frame.
    Bytes next()
    {
        pcap_pkthdr* header = nullptr;
        const unsigned char* frame = nullptr;
        while (pcap_next_ex(m_handle, &header, &frame) == 0) { }
        return {frame, frame + header->caplen};
    }

private:
    pcap_t* m_handle;
};

TEST_F(Loopback, ACapturesTagsAreKeptOnRequest)
{
    Tap tap("vlan 100 and udp port 45678 and dst host 239.255.77.79");
    if (!tap.isOpen())
        GTEST_SKIP() << "no capture on loopback without root";
    std::vector<Captured> three = threeOf(stream);
    for (Captured& datagram : three)
        datagram.tags = {0x81, 0x00, 0x60, 0x64}; // priority 3, VLAN 100
    const std::string capture = writePcap("replay-vlan.pcap", three);
    Sending sending({capture, "udp://239.255.77.79:45678", "--keep-vlan", "--interface", "lo", "--ttl", "9"});
    ASSERT_EQ(sending.wait(), 0) << sending.output();
    std::remove(capture.c_str());
    for (const Captured& sent : three) {
        const Bytes frame = tap.next();
        ASSERT_EQ(frame.size(), 46U + 1316U);
        EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 6), (Bytes{0x01, 0x00, 0x5E, 0x7F, 0x4D, 0x4F}));
        EXPECT_EQ(Bytes(frame.begin() + 12, frame.begin() + 18), (Bytes{0x81, 0x00, 0x60, 0x64, 0x08, 0x00}));
        EXPECT_EQ(frame[26], 9); // time to live
        unsigned sum = 0;
        for (std::size_t at = 18; at < 38; at += 2)
            sum += static_cast<unsigned>(frame[at] << 8 | frame[at + 1]);
        EXPECT_EQ((sum & 0xFFFFU) + (sum >> 16), 0xFFFFU) << "checksum of the IPv4 header";
        EXPECT_EQ(Bytes(frame.begin() + 46, frame.end()), sent.payload);
    }
}

TEST_F(Loopback, TagsNeedAGroupAndAnInterface)
{
    std::vector<Captured> three = threeOf(stream);
    three[0].tags = {0x81, 0x00, 0x60, 0x64};
    const std::string capture = writePcap("replay-vlan2.pcap", three);
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {receiver.target("udp"), "--interface", "lo"}, {"udp://239.255.77.79:45678"}}) {
        std::vector<std::string> whole{capture, "--keep-vlan"};
        whole.insert(whole.end(), arguments.begin(), arguments.end());
        Sending sending(whole);
        EXPECT_EQ(sending.wait(), 2) << sending.output();
    }
    std::remove(capture.c_str());
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
