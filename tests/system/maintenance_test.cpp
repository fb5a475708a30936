#include "hardwaresuite.h"

#include <QRegularExpression>

namespace {

using namespace tessary::test;

class Maintenance : public HardwareSuite
{
protected:
    void SetUp() override
    {
        HardwareSuite::SetUp();
        startDaemon();
    }
};

/// A command of the table, what it answers when nothing was selected before, and the line that its handler
/// logs.
struct Row
{
    const char* command;
    const char* answer; ///< regular expression of the whole answer
    const char* logLine;
};

const Row rows[] = {
    {"interface?\n", "\\d+\\.\\d+\\.\\d+\\.\\d+ 255\\.255\\.255\\.0\n", "GETinterface"},
    {"interface=dhcp\n", "", "SETinterface"},
    {"server?\n", "", "GETserver"},
    {"server=UDP 239.1.2.3 5000\n", "", "SETserver"},
    {"streaminfo?\n", "", "STReaminfos"},
    {"videostatus?\n", "", "VIDeostatus"},
    {"getnit?\n", "", "GETnit"},
    {"getpmt?\n", "", "GETpmt"},
    {"ping -c 1 127.0.0.1\n", "PING 127\\.0\\.0\\.1 .*1 packets transmitted, 1 received.*\n", "PINg"},
    {"version?\n", "SV: mx8 " TESSARY_VERSION " FPGA: 5/5/2021 4:52:47 done=OK\n", "VERsion"},
    {"t2miframe?\n", "", "GetT2MIFrame"},
    {"ipstatus?\n", "eth0: .*Speed: .*", "IPStatus"},
    {"!0C_L_IX:0C\n", "Service12", "ServiceNameEBS"},
    {"!07_A_&\n", "\\*17_a\\.FL:02_NS:00\\$_DS:00", "STAtusEBS"},
    {"!07_E_&\n", "\\*32_e\\.DI:0000_0000_0000_0000_0000_0000_0000_0000_\\$", "INFoEBS"},
    {"!16_O_AX:50\n", "\\*07_o\\.\\$", "AudioLevelEBS"},
    {"!07_V_&\n", "SV: mx8 " TESSARY_VERSION " FPGA: 5/5/2021 4:52:47 done=OK\n", "VERsionEBS"},
    {"PVR_reclist\n", "reclist file:0 Bytes", "Uart_PVR_reclist"},
    {"PVR_export\n", "PVR_export_ok\n", "Uart_PVR_Export"},
    {"PVR_stop\n", "", "Uart_PVR_Stop"},
    {"command:true\n", "", "Console command :"},
    {"scancur\n", "", "SCANcur"},
    // The first measurement since the start: seven numbers of four bytes, all 0 but the last, which is 10.
    {"getethernetmes?\n", "\\x{00}{24}\\x{0A}\\x{00}{3}", "GETethernetmes"},
    {"getiat?\n", "(-?\\d+;)*", "GETiat"},
    {"play=1\n", "", "PLay"},
    {"sendts\n", "", "SENDts"},
    {"!07_S_&\n", "", "SCANcurPCIE"},
    {"!0C_D_IX:01\n", "\\*0C_d\\.SX", "PLayPCIE n°01"},
    {"PVR_record\n", "", "Uart_PVR_Record"},
    {"PVR_scan\n", "", "Uart_PVR_Scan"},
    {"STOP_DAB\n", "", ""},
    {"dab tune\n", "", ""},
    {"nothing of this kind\n", "", ""},
};

/// The lines of ifconfig that count packets and bytes, which differ from one call to the next, are left out.
QString withoutCounters(const QByteArray& text)
{
    static const QRegularExpression counters(
        "^ *[RT]X (packets|errors) .*\n", QRegularExpression::MultilineOption);
    return QString::fromUtf8(text).remove(counters);
}

} // namespace

TEST_F(Maintenance, EveryCommandAnswersAsItsRowSays)
{
    instrument().ethernetAddress(); // there is one
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        const QByteArray before = log();
        const std::string answer = ask(row.command);
        const QRegularExpression expected(
            QRegularExpression::anchoredPattern(row.answer), QRegularExpression::DotMatchesEverythingOption);
        EXPECT_TRUE(expected.match(QString::fromStdString(answer)).hasMatch()) << answer;
        EXPECT_TRUE(log().mid(before.size()).contains(row.logLine)) << log().mid(before.size()).constData();
    }
}

TEST_F(Maintenance, IpstatusIsWhatIfconfigAndEthtoolPrint)
{
    instrument().ethernetAddress();
    QString answer;
    QString expected;
    // Asked again when the interface gets or loses an address in between.
    waitUntil([&] {
        const QByteArray link = instrument().exec({"ethtool", "eth0"}).output;
        EXPECT_GE(link.indexOf("Speed: "), 0) << link.constData();
        expected =
            withoutCounters(instrument().exec({"ifconfig", "eth0"}).output + link.mid(link.indexOf("Speed")));
        answer = withoutCounters(QByteArray::fromStdString(ask("ipstatus?\n")));
        return answer == expected;
    });
    EXPECT_EQ(answer.toStdString(), expected.toStdString());
    EXPECT_TRUE(answer.startsWith("eth0: "));
}

TEST_F(Maintenance, PingOfTheSenderGivesTheRealOutputByteForByte)
{
    instrument().ethernetAddress();
    const std::string answer = ask("ping -c 3 -i 0.2 192.168.77.1 | tee /run/bench/ping.txt\n");
    EXPECT_EQ(answer, contentOf(instrument().sharedFile("ping.txt")).toStdString());
    const QRegularExpression real(
        "^PING 192\\.168\\.77\\.1 \\(192\\.168\\.77\\.1\\) 56\\(84\\) bytes of data\\.\n"
        "(64 bytes from 192\\.168\\.77\\.1: icmp_seq=\\d ttl=64 time=[\\d.]+ ms\n){3}"
        "\n--- 192\\.168\\.77\\.1 ping statistics ---\n"
        "3 packets transmitted, 3 received, 0% packet loss, time \\d+ms\n"
        "rtt min/avg/max/mdev = [\\d./]+ ms\n$");
    EXPECT_TRUE(real.match(QString::fromStdString(answer)).hasMatch()) << answer;
}
