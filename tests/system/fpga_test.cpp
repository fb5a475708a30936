#include "hardwaresuite.h"

namespace {

using namespace tessary::test;

// Hardware at the start                | SPI              | PCI    | version?
// FPGA not configured                  | the whole file   | rescan | time-stamp done=OK
// FPGA configured                      | nothing          | rescan | done=OK
// one transfer fails                   | stops there      | none   | done=NOK
// no file / an empty file              | nothing          | none   | says so

class Fpga : public HardwareSuite
{
protected:
    static constexpr const char* stamp = "SV: mx8 " TESSARY_VERSION " FPGA: 5/5/2021 4:52:47 done=";

    static QStringList rescan()
    {
        return {"echo 1 > /sys/bus/pci/devices/0000:01:00.0/remove",
            "echo 1 > /sys/bus/pci/devices/0000:00:00.0/remove", "echo 1 > /sys/bus/pci/rescan"};
    }

    QStringList pciCommands() const { return shellCommands().filter("/sys/bus/pci"); }
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
    EXPECT_EQ(pciCommands(), rescan());
    EXPECT_EQ(notes("pci").size(), 3);
    EXPECT_EQ(version(), std::string(stamp) + "OK\n");
    EXPECT_EQ(ask("!07_V_&\n"), std::string(stamp) + "OK\n");
}

TEST_F(Fpga, AConfiguredOneIsLeftAloneAndRescanned)
{
    setKnob("configured=1");
    startDaemon();
    EXPECT_TRUE(logged("FPGA already programmed"));
    EXPECT_TRUE(notes("spi").isEmpty());
    EXPECT_EQ(pciCommands(), rescan());
    EXPECT_EQ(version(), std::string(stamp) + "OK\n");
}

TEST_F(Fpga, AFailingTransferLeavesItUnconfiguredAndUnscanned)
{
    setKnob("spi-fail=10");
    startDaemon();
    EXPECT_TRUE(logged("Error while programming FPGA for buffer number 0"));
    EXPECT_TRUE(logged("FAILED programming FPGA"));
    EXPECT_EQ(notes("spi").size(), 10);
    EXPECT_TRUE(pciCommands().isEmpty());
    EXPECT_EQ(version(), std::string(stamp) + "NOK\n");
}

TEST_F(Fpga, WithoutBitstreamFileNothingIsSent)
{
    instrument().shell("rm /home/ondrak/Tessary/Tessary.bit");
    startDaemon();
    EXPECT_TRUE(logged("FAILED programming FPGA"));
    EXPECT_TRUE(notes("spi").isEmpty());
    EXPECT_TRUE(pciCommands().isEmpty());
    EXPECT_EQ(version(), "SV: mx8 " TESSARY_VERSION " FPGA: bitfile not found\n");
}

TEST_F(Fpga, AnEmptyBitstreamFileSendsNothing)
{
    instrument().shell("dd of=/home/ondrak/Tessary/Tessary.bit count=0 if=/dev/null");
    startDaemon();
    EXPECT_TRUE(logged("FAILED programming FPGA"));
    EXPECT_TRUE(notes("spi").isEmpty());
    EXPECT_EQ(version(), "SV: mx8 " TESSARY_VERSION " FPGA: bitfile empty\n");
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
