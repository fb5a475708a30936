// tessary-send sends captures again, received on this machine's loopback interface.
#include "captures.h"
#include "loopback.h"
#include "sending.h"

#include <pcap/pcap.h>

namespace {

using namespace tessary::test;

using Replay = Loopback;

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

TEST_F(Replay, ACaptureIsSentWithItsOwnTiming)
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

TEST_F(Replay, ACaptureOfRtpWantsAnRtpTarget)
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

TEST_F(Replay, ACapturesTagsAreKeptOnRequest)
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

TEST_F(Replay, TagsNeedAGroupAndAnInterface)
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

} // namespace
