#include "client/psi/sections.h"
#include "kit/crc.h"
#include "kit/oracle.h"
#include "systemsuite.h"

#include <QFile>

namespace {

using namespace tessary;
using namespace tessary::test;
using client::Bytes;
using Protocol = client::StreamServer::Protocol;

// What is sent: a recorded T2-MI stream on PID 64, over UDP and over RTP, PLP 102 selected.
// Expected: "sendts" hands the FPGA the transport stream inside, equal to what another extractor made of the
// same recording from where that begins; a scan finds the inner stream's SDT; "t2miframe?" gives the last
// T2-MI packet whole.

class T2mi : public SystemSuite, public testing::WithParamInterface<Protocol>
{
protected:
    static constexpr const char* outerName = "t2mi-plp102.ts";
    static constexpr const char* innerName = "t2mi-plp102.inner.ts";
    static constexpr std::uint16_t pid = 64;
    static constexpr std::uint8_t plp = 102;

    void SetUp() override
    {
        for (const char* name : {outerName, innerName}) {
            if (!samplePath(name).has_value())
                GTEST_SKIP() << missingSample(name);
        }
        m_address = instrument().ethernetAddress().toStdString();
        controller().setServer({GetParam(), m_address, 5020, pid, plp});
    }

    void sendOnce() const
    {
        const QString url =
            QString("%1://%2:5020")
                .arg(GetParam() == Protocol::RtpT2mi ? "rtp" : "udp", QString::fromStdString(m_address));
        RunningStream stream =
            instrument().send({QString::fromStdString(*samplePath(outerName)), url, "--bitrate", "16M"});
        ASSERT_TRUE(stream.waitUntilSent()) << stream.errors().constData();
    }

    static QByteArray contentOf(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    std::string m_address;
};

std::string protocolName(const testing::TestParamInfo<Protocol>& info)
{
    return info.param == Protocol::UdpT2mi ? "Udp" : "Rtp";
}

TEST_P(T2mi, TheFpgaGetsTheInnerStream)
{
    const QByteArray expected = contentOf(QString::fromStdString(*samplePath(innerName)));
    controller().scan(); // a source of the protocol now set; sendts keeps an existing one
    controller().sendStream();
    sendOnce();
    QByteArray received;
    const auto complete = [&] {
        received = contentOf(instrument().sharedFile("fpga-out.ts"));
        const int start = received.indexOf(expected.left(20 * 188));
        return start >= 0 && received.size() - start >= expected.size();
    };
    EXPECT_TRUE(waitUntil(complete)) << received.size() << " bytes reached the FPGA";
    const int start = received.indexOf(expected.left(20 * 188));
    ASSERT_GE(start, 0) << "the inner stream's first packets are not in what the FPGA got";
    EXPECT_EQ(start % 188, 0);
    EXPECT_TRUE(received.mid(start, expected.size()) == expected);
}

TEST_P(T2mi, AScanFindsTheInnerStreamsTables)
{
    const auto sdt = oracleSections(oracleReport(*samplePath(innerName)), 0x42);
    ASSERT_EQ(sdt.size(), 1U);
    controller().scan();
    sendOnce();
    Bytes found;
    waitUntil([&] { return (found = controller().streamInfo()) == sdt[0].bytes; });
    EXPECT_EQ(found, sdt[0].bytes);
}

TEST_P(T2mi, TheNewestFrameIsAWholeT2miPacket)
{
    constexpr std::size_t header = 6;
    constexpr std::size_t crc = 4;
    controller().scan();
    sendOnce();
    Bytes frame;
    waitUntil([&] { return !(frame = controller().t2miFrame()).empty(); });
    ASSERT_GT(frame.size(), header + crc);
    const std::size_t payloadBits = static_cast<std::size_t>(frame[4]) << 8U | frame[5];
    EXPECT_EQ(frame.size(), header + (payloadBits + 7) / 8 + crc);
    EXPECT_EQ(crc32Mpeg2(frame), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Transports, T2mi, testing::Values(Protocol::UdpT2mi, Protocol::RtpT2mi), protocolName);

} // namespace
