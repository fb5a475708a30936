// Recorded broadcast streams, scanned as files and as they come in over UDP and RTP: the tables equal what an
// independent reader finds.
#include "sourcetest.h"

#include "kit/oracle.h"
#include "media/filesource.h"
#include "media/rtpsource.h"
#include "media/udpsource.h"
#include "send_loop.h"
#include "stream_datagrams.h"
#include "ts_file.h"

#include <arpa/inet.h>
#include <atomic>
#include <filesystem>
#include <map>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using tessary::test::Bytes;
using tessary::test::OracleSection;

enum class Way { File, Udp, Rtp };

struct Recording
{
    const char* file;
    Way way;
};

void PrintTo(const Recording& recording, std::ostream* out)
{
    *out << recording.file;
}

/// A UDP port of the loopback that nobody uses at the moment.
std::uint16_t freePort()
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    close(fd);
    return ntohs(address.sin_port);
}

/// Counts the bytes that leave an element by its source pad while the object lives.
class ByteCount
{
public:
    explicit ByteCount(GstElement* element)
        : m_pad(gst_element_get_static_pad(element, "src"))
        , m_probe(gst_pad_add_probe(m_pad, GST_PAD_PROBE_TYPE_BUFFER, &ByteCount::count, &m_bytes, nullptr))
    {
    }
    ~ByteCount()
    {
        gst_pad_remove_probe(m_pad, m_probe);
        gst_object_unref(m_pad);
    }
    ByteCount(const ByteCount&) = delete;
    ByteCount& operator=(const ByteCount&) = delete;

    /// Waits until so many bytes have come, and no more.
    bool waitFor(std::size_t bytes) const
    {
        return eventually([&] { return m_bytes >= bytes; }) && m_bytes == bytes;
    }

private:
    static GstPadProbeReturn count(GstPad*, GstPadProbeInfo* info, gpointer bytes)
    {
        *static_cast<std::atomic<std::size_t>*>(bytes) +=
            gst_buffer_get_size(GST_PAD_PROBE_INFO_BUFFER(info));
        return GST_PAD_PROBE_OK;
    }

    std::atomic<std::size_t> m_bytes{0};
    GstPad* m_pad;
    gulong m_probe;
};

class Samples : public SourceTest, public ::testing::WithParamInterface<Recording>
{
protected:
    void SetUp() override
    {
        const auto path = tessary::test::samplePath(GetParam().file);
        if (!path)
            GTEST_SKIP() << tessary::test::missingSample(GetParam().file);
        m_report = tessary::test::oracleReport(*path);
        if (GetParam().way == Way::File) {
            hold(new filesource(*path));
            source().scanStream();
        } else {
            ASSERT_NO_FATAL_FAILURE(receive(*path));
        }
        ASSERT_TRUE(prints.waitFor("EOS\n"));
        ASSERT_TRUE(reaches(GST_STATE_NULL));
    }

    /// Scans the file as it comes in from the network; the stream ends behind its last packet.
    void receive(const std::string& path)
    {
        tessary::sender::Options options;
        options.host = "127.0.0.1";
        options.port = freePort();
        options.rtp = GetParam().way == Way::Rtp;
        options.bitRate = 25e6;
        const std::string port = std::to_string(options.port);
        if (options.rtp)
            hold(new rtpsource(options.host, port, nullptr));
        else
            hold(new udpsource(options.host, port, nullptr));
        const ByteCount received(element("my_bin"));
        source().scanStream();
        ASSERT_TRUE(reaches(GST_STATE_PLAYING));
        const tessary::sender::TsFile file(path);
        tessary::sender::StreamDatagrams datagrams(options, file);
        tessary::sender::DatagramSocket outlet(tessary::sender::targetOf(options));
        tessary::sender::SendLoop(options, datagrams, outlet, [] { return false; }).run();
        ASSERT_TRUE(received.waitFor(std::filesystem::file_size(path) - file.bytesLeftOver()));
        gst_element_send_event(element("udpsrc1"), gst_event_new_eos());
    }

    std::vector<OracleSection> expected(int tableId) const
    {
        return tessary::test::oracleSections(m_report, tableId);
    }

private:
    QJsonObject m_report;
};

void append(Bytes& all, const Bytes& more)
{
    all.insert(all.end(), more.begin(), more.end());
}

/// The last PAT whose length differs from the one before.
Bytes patByLength(const std::vector<OracleSection>& sections)
{
    Bytes kept;
    for (const OracleSection& section : sections) {
        if (section.bytes.size() != kept.size())
            kept = section.bytes;
    }
    return kept;
}

/// All SDT sections one after another, but for one that is as long as all before it together.
Bytes sdtAccumulated(const std::vector<OracleSection>& sections)
{
    Bytes all;
    for (const OracleSection& section : sections) {
        if (section.bytes.size() != all.size())
            append(all, section.bytes);
    }
    return all;
}

/// The first section of each number, in the order of the numbers, as far as they follow without a gap from 0.
Bytes nitInOrder(const std::vector<OracleSection>& sections)
{
    std::map<int, Bytes> firsts;
    for (const OracleSection& section : sections)
        firsts.emplace(section.number, section.bytes);
    Bytes all;
    for (const auto& [number, bytes] : firsts) {
        if (number < static_cast<int>(firsts.size()))
            append(all, bytes);
    }
    return all;
}

TEST_P(Samples, PatEqualsTheStreams)
{
    ASSERT_FALSE(expected(0x00).empty());
    EXPECT_EQ(*source().getPAT(), patByLength(expected(0x00)));
}

TEST_P(Samples, SdtEqualsTheStreams)
{
    ASSERT_FALSE(expected(0x42).empty());
    Bytes tagged{'<', 'S', 'D', 'T', '>'};
    append(tagged, sdtAccumulated(expected(0x42)));
    ASSERT_NE(source().getStreamInformation(), nullptr);
    EXPECT_EQ(*source().getStreamInformation(), tagged);
}

TEST_P(Samples, NitEqualsTheStreams)
{
    ASSERT_FALSE(expected(0x40).empty());
    EXPECT_EQ(*source().getNIT(), nitInOrder(expected(0x40)));
}

TEST_P(Samples, EachProgramsPmtEqualsTheStreams)
{
    std::map<int, Bytes> firsts; // the first PMT of a program is kept
    for (const OracleSection& section : expected(0x02))
        firsts.emplace(section.extension, section.bytes);
    ASSERT_FALSE(firsts.empty());
    for (const auto& [program, bytes] : firsts) {
        source().play(program);
        source().stop();
        ASSERT_NE(source().getPMT(), nullptr) << "program " << program;
        EXPECT_EQ(*source().getPMT(), bytes) << "program " << program;
    }
}

std::string nameOf(const ::testing::TestParamInfo<Recording>& info)
{
    static const char* const ways[] = {"AsAFile", "OverUdp", "OverRtp"};
    std::string name = info.param.file;
    for (char& c : name)
        c = c == '-' || c == '.' ? '_' : c;
    return name + ways[static_cast<int>(info.param.way)];
}

std::vector<Recording> everyWay()
{
    std::vector<Recording> all;
    for (const char* file : {"rai-dvbt-mux.ts", "ard-dvbt2-hbbtv.ts", "cts-taiwan-si.ts", "pat-change.ts"}) {
        for (const Way way : {Way::File, Way::Udp, Way::Rtp})
            all.push_back({file, way});
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Recorded, Samples, ::testing::ValuesIn(everyWay()), nameOf);

} // namespace
