#include "hardwaresuite.h"

namespace {

using namespace tessary::test;

// The whole start with an FPGA, and the version behind it. Transfers that fail, and files that are none, are
// unit tests'.

class Fpga : public HardwareSuite
{
protected:
    static constexpr const char* stamp = "SV: mx8 " TESSARY_VERSION " FPGA: 5/5/2021 4:52:47 done=";
};

TEST_F(Fpga, AnUnconfiguredOneGetsTheBitstreamAndIsRescanned)
{
    const QByteArray bitstream = makeBitfile();
    startDaemon();
    EXPECT_TRUE(logged("SUCCESS programming FPGA"));
    EXPECT_EQ(hardwareFile("bitstream.bin"), bitstream);
    const QList<QByteArray> transfers = notes("spi");
    ASSERT_EQ(transfers.size(), (bitstream.size() + 4095) / 4096);
    for (int i = 0; i < transfers.size(); ++i) {
        const int bytes = std::min(4096, bitstream.size() - i * 4096);
        EXPECT_EQ(transfers[i].toStdString(),
            "\"bytes\": " + std::to_string(bytes)
                + ", \"speed_hz\": 30000000, \"bits_per_word\": 8, \"delay_us\": 0"
                + ", \"cs_change\": 0, \"tx_lines\": 0, \"rx_lines\": 0, \"result\": "
                + std::to_string(bytes));
    }
    EXPECT_EQ(shellCommands().filter("/sys/bus/pci"),
        (QStringList{"echo 1 > /sys/bus/pci/devices/0000:01:00.0/remove",
            "echo 1 > /sys/bus/pci/devices/0000:00:00.0/remove", "echo 1 > /sys/bus/pci/rescan"}));
    EXPECT_EQ(notes("pci").size(), 3);
    EXPECT_EQ(version(), std::string(stamp) + "OK\n");
    EXPECT_EQ(ask("!07_V_&\n"), std::string(stamp) + "OK\n");
}

TEST_F(Fpga, TheVersionFollowsTheFileWhileTheDaemonRuns)
{
    startDaemon();
    makeBitfile({"--stamp", "0xFFFFFFFF"});
    EXPECT_EQ(version(), "SV: mx8 " TESSARY_VERSION " FPGA: 31/15/2063 31:63:63 done=OK\n");
    makeBitfile({"--no-sync"});
    EXPECT_EQ(version(), "SV: mx8 " TESSARY_VERSION " FPGA: start pattern not found in bitfile\n");
    makeBitfile({"--words-before-stamp", "600"});
    EXPECT_EQ(version(), "SV: mx8 " TESSARY_VERSION " FPGA: version not found in bitfile\n");
    EXPECT_EQ(ask("!07_V_&\n"), "SV: mx8 " TESSARY_VERSION " FPGA: version not found in bitfile\n");
}

} // namespace
