#include "kit/oracle.h"
#include "systemsuite.h"

#include <algorithm>
#include <QJsonArray>
#include <QTemporaryFile>

namespace {

using namespace tessary;
using namespace tessary::test;
using Protocol = client::StreamServer::Protocol;

// A recorded multiplex over each way into the instrument, and the others over one. (All of them as files,
// over UDP and over RTP: Samples in tests/unit/media.) Expected, byte for byte, is what an independent reader
// finds in the file:
//
//   streaminfo?        "<SDT>" and the SDT for the actual stream: one section in each file, so none is added
//   getnit?            the NIT for the actual network
//   getpmt?            after play=N the PMT of program N, and nothing for a program whose PMT is not in the file
//   the daemon's log   the number of programs in the PAT

enum class Way { UdpUnicast, UdpMulticast, RtpUnicast, RtpMulticast, Recording };

struct Case
{
    const char* file;
    Way way;
};

std::string nameOf(const testing::TestParamInfo<Case>& info)
{
    static const char* const ways[] = {
        "UdpUnicast", "UdpMulticast", "RtpUnicast", "RtpMulticast", "Recording"};
    std::string name = std::string(info.param.file).substr(0, 3);
    return name + ways[static_cast<int>(info.param.way)];
}

void PrintTo(const Case& value, std::ostream* out)
{
    *out << value.file;
}

Bytes inOrder(std::vector<OracleSection> sections)
{
    std::sort(
        sections.begin(), sections.end(), [](const auto& a, const auto& b) { return a.number < b.number; });
    Bytes all;
    for (const OracleSection& section : sections)
        append(all, section.bytes);
    return all;
}

class Scan : public SystemSuite, public testing::WithParamInterface<Case>
{
protected:
    void SetUp() override
    {
        const auto path = samplePath(GetParam().file);
        if (!path.has_value())
            GTEST_SKIP() << missingSample(GetParam().file);
        m_path = QString::fromStdString(*path);
        m_report = oracleReport(*path);
        m_logStart = instrument().daemonLog().size();
    }

    bool multicast() const
    {
        return GetParam().way == Way::UdpMulticast || GetParam().way == Way::RtpMulticast;
    }
    bool rtp() const { return GetParam().way == Way::RtpUnicast || GetParam().way == Way::RtpMulticast; }

    /// Scans the file by way of the network: everything is sent once, faster than on the air but within what
    /// eth0 carries.
    void scanNetwork() const
    {
        const QString ethernet = instrument().ethernetAddress();
        const std::string address = multicast() ? "239.10.20.30" : ethernet.toStdString();
        controller().setServer({rtp() ? Protocol::Rtp : Protocol::Udp, address, 5010, 0, 0});
        controller().scan();
        const QString url =
            QString("%1://%2:5010").arg(rtp() ? "rtp" : "udp", QString::fromStdString(address));
        RunningStream stream = instrument().send({m_path, url, "--bitrate", "25M", "--interface", "uplink"});
        ASSERT_TRUE(stream.waitUntilSent()) << stream.errors().constData();
    }

    /// The same as the recording on the memory card. The scan of a file ends with the file.
    void scanRecording() const
    {
        QFile::remove(instrument().sharedFile("record.ts"));
        ASSERT_TRUE(QFile::copy(m_path, instrument().sharedFile("record.ts")));
        instrument().shell(
            "mkdir -p /run/media/mmcblk1p1 && mv /run/bench/record.ts /run/media/mmcblk1p1/record.ts");
        controller().scanRecording();
        EXPECT_TRUE(waitUntil([] { return controller().playerStatus() == "stopped"; }));
    }

    void expectLogged(const QByteArray& words) const
    {
        EXPECT_TRUE(waitUntil([&] { return instrument().daemonLog().mid(m_logStart).contains(words); }))
            << words.constData();
    }

    void expectPrograms() const
    {
        const auto pat = oracleSections(m_report, 0x00);
        ASSERT_EQ(pat.size(), 1U);
        const std::size_t entries = (pat[0].bytes.size() - 12) / 4;
        const QByteArray words = QByteArray::number(static_cast<int>(entries)) + " programs : ";
        expectLogged(words);
    }

    QString m_path;
    QJsonObject m_report;
    int m_logStart = 0;
};

TEST_P(Scan, GivesTheTablesThatAreInTheStream)
{
    if (GetParam().way == Way::Recording)
        scanRecording();
    else
        scanNetwork();
    const auto sdt = oracleSections(m_report, 0x42);
    const auto nit = oracleSections(m_report, 0x40);
    ASSERT_EQ(sdt.size(), 1U) << "more than one section would accumulate";
    ASSERT_FALSE(nit.empty());
    Bytes found;
    waitUntil([&] { return (found = controller().streamInfo()) == sdt[0].bytes; });
    EXPECT_EQ(found, sdt[0].bytes);
    waitUntil([&] { return (found = controller().networkInformation()) == inOrder(nit); });
    EXPECT_EQ(found, inOrder(nit));
    expectPrograms();

    const auto maps = oracleSections(m_report, 0x02);
    for (const auto& program : m_report["summary"].toObject()["programs"].toArray()) {
        const int number = program.toObject()["program"].toInt();
        SCOPED_TRACE("program " + std::to_string(number));
        const auto map = std::find_if(
            maps.begin(), maps.end(), [&](const OracleSection& s) { return s.extension == number; });
        if (map != maps.end())
            expectLogged("new PMT received program_number :" + QByteArray::number(number) + "\r\n");
        controller().play(number);
        if (map != maps.end()) {
            EXPECT_EQ(controller().programMap(), map->bytes);
        } else {
            line().write("getpmt?\n");
            expectOnlyVersionAnswers();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Multiplexes, Scan,
    testing::Values(Case{"rai-dvbt-mux.ts", Way::UdpUnicast}, Case{"rai-dvbt-mux.ts", Way::UdpMulticast},
        Case{"rai-dvbt-mux.ts", Way::RtpUnicast}, Case{"rai-dvbt-mux.ts", Way::RtpMulticast},
        Case{"rai-dvbt-mux.ts", Way::Recording}, Case{"ard-dvbt2-hbbtv.ts", Way::RtpMulticast},
        Case{"cts-taiwan-si.ts", Way::UdpUnicast}),
    nameOf);

} // namespace
