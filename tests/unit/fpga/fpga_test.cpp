// Loading the FPGA, against a counterpart that behaves like one: lines that must be exported, a done line
// that rises only after a complete and correct bitstream behind a pulse of the program line, an SPI device
// that takes the real request.
#include "bench.h"
#include "support/testfiles.h"
#include "support/thisprocess.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

/// The next allocations of exactly this size, and which of them fails: 1 the first, 0 none.
std::size_t watchedSize = 0;
int failing = 0;

class FpgaLoading : public FpgaBench
{
};

const Lines exportedAndPulsed = {
    R"("file": "export", "text": "14", "result": 0)",
    R"("file": "gpio14/direction", "text": "in", "result": 0)",
    R"("file": "export", "text": "101", "result": 0)",
    R"("file": "gpio101/direction", "text": "out", "result": 0)",
    R"("file": "gpio101/value", "text": "1", "result": 0)",
    R"("file": "gpio101/value", "text": "0", "result": 0)",
    R"("file": "gpio101/value", "text": "1", "result": 0)",
};

const Lines unexported = {
    R"("file": "unexport", "text": "101", "result": 0)",
    R"("file": "unexport", "text": "14", "result": 0)",
};

Lines joined(Lines first, const Lines& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::string transferNote(std::size_t bytes, const std::string& result)
{
    return "\"bytes\": " + std::to_string(bytes)
        + R"(, "speed_hz": 30000000, "bits_per_word": 8, "delay_us": 0, "cs_change": 0, "tx_lines": 0, "rx_lines": 0)"
        + ", \"result\": " + result;
}

/// Descriptors of this process that show this file.
std::vector<int> descriptorsOf(const std::string& path)
{
    std::vector<int> found;
    for (int fd = 0; fd < 256; ++fd) {
        char target[PATH_MAX] = {};
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        if (readlink(link.c_str(), target, sizeof target - 1) > 0 && path == target)
            found.push_back(fd);
    }
    return found;
}

} // namespace

void* realMalloc(std::size_t size) __asm__("__real_malloc");
void* mallocOrFail(std::size_t size) __asm__("__wrap_malloc");
void* mallocOrFail(std::size_t size)
{
    if (size == watchedSize && failing > 0 && --failing == 0)
        return nullptr;
    return realMalloc(size);
}

TEST_F(FpgaLoading, AnUnconfiguredFpgaGetsTheWholeFileInChunksAndIsConfigured)
{
    makeBitfile();
    const std::string file = readFile(bitfilePath);
    EXPECT_TRUE(fpga.programFpga());
    EXPECT_EQ(log.lines(), Lines{"SUCCESS programming FPGA"});
    EXPECT_EQ(receivedBitstream(), file);
    EXPECT_EQ(notes("gpio"), joined(exportedAndPulsed, unexported));
    const Lines transfers = notes("spi");
    ASSERT_EQ(transfers.size(), (file.size() + 4095) / 4096);
    for (std::size_t i = 0; i + 1 < transfers.size(); ++i)
        EXPECT_EQ(transfers[i], transferNote(4096, "4096"));
    const std::size_t last = file.size() % 4096;
    EXPECT_EQ(transfers.back(), transferNote(last, std::to_string(last)));
}

TEST_F(FpgaLoading, AFileOfWholeChunksSendsNoEmptyOne)
{
    writeFile(bitfilePath, std::string(8192, '\xFF'));
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(notes("spi"), (Lines{transferNote(4096, "4096"), transferNote(4096, "4096")}));
}

TEST_F(FpgaLoading, AConfiguredFpgaIsLeftAlone)
{
    makeBitfile();
    setKnob("configured=1\n");
    const auto openBefore = openDescriptors();
    EXPECT_TRUE(fpga.programFpga());
    EXPECT_EQ(openDescriptors(), openBefore);
    EXPECT_EQ(log.lines(), Lines{"FPGA already programmed"});
    EXPECT_EQ(notes("gpio"), (Lines{exportedAndPulsed[0], exportedAndPulsed[1], unexported[1]}));
    EXPECT_TRUE(notes("spi").empty());
}

TEST_F(FpgaLoading, AFailingTransferStopsTheDownloadAndIsAlwaysCalledBufferZero)
{
    makeBitfile();
    setKnob("spi-fail=3\n");
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(
        log.lines(), (Lines{"Error while programming FPGA for buffer number 0", "FAILED programming FPGA"}));
    EXPECT_EQ(notes("spi").size(), 3u);
    EXPECT_EQ(receivedBitstream(), readFile(bitfilePath).substr(0, 8192));
    EXPECT_EQ(notes("gpio"), joined(exportedAndPulsed, unexported));
}

TEST_F(FpgaLoading, AMissingFileSendsNothingAndTheDoneLineDecides)
{
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(log.lines(), Lines{"FAILED programming FPGA"});
    EXPECT_TRUE(notes("spi").empty());
    EXPECT_EQ(notes("gpio"), joined(exportedAndPulsed, unexported));
}

TEST_F(FpgaLoading, AnEmptyFileSendsNothing)
{
    writeFile(bitfilePath, "");
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(log.lines(), Lines{"FAILED programming FPGA"});
    EXPECT_TRUE(notes("spi").empty());
}

TEST_F(FpgaLoading, AFolderInPlaceOfTheFileSendsNothing)
{
    std::filesystem::create_directories(bitfilePath);
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_TRUE(notes("spi").empty());
}

TEST_F(FpgaLoading, ATruncatedBitstreamFails)
{
    makeBitfile();
    std::filesystem::resize_file(bitfilePath, 40000);
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(log.lines(), Lines{"FAILED programming FPGA"});
    EXPECT_EQ(receivedBitstream().size(), 40000u);
}

TEST_F(FpgaLoading, ACorruptBitstreamFails)
{
    makeBitfile();
    std::string file = readFile(bitfilePath);
    file[40000] = static_cast<char>(file[40000] ^ 1);
    writeFile(bitfilePath, file);
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(log.lines(), Lines{"FAILED programming FPGA"});
}

TEST_F(FpgaLoading, ADoneLineThatNeverRisesFails)
{
    makeBitfile();
    setKnob("done-stuck=1\n");
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(log.lines(), Lines{"FAILED programming FPGA"});
}

TEST_F(FpgaLoading, ALaterStartConfiguresAfterAFailedOne)
{
    makeBitfile();
    setKnob("spi-fail=1\n");
    EXPECT_FALSE(fpga.programFpga());
    setKnob("spi-fail=0\n");
    EXPECT_TRUE(fpga.programFpga());
    EXPECT_EQ(receivedBitstream(), readFile(bitfilePath));
}

TEST_F(FpgaLoading, WithoutAnyFpgaTheLoadFails)
{
    TearDown(); // no lines, no SPI device
    makeBitfile();
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(
        log.lines(), (Lines{"Error while programming FPGA for buffer number 0", "FAILED programming FPGA"}));
}

// The descriptor of the bitstream file is closed twice and the SPI device stays open. The second close must
// not hit the SPI device, which would otherwise get the number that the first close made free.
TEST_F(FpgaLoading, TheSpiDeviceStaysOpenBehindTheSecondCloseOfTheFile)
{
    makeBitfile();
    const auto openBefore = openDescriptors();
    EXPECT_TRUE(fpga.programFpga());
    EXPECT_EQ(openDescriptors(), openBefore + 1);
    const std::vector<int> open = descriptorsOf("/dev/spidev0.0");
    ASSERT_EQ(open.size(), 1u);
    EXPECT_TRUE(descriptorsOf(bitfilePath).empty());
    EXPECT_NE(fcntl(open[0], F_GETFD) & FD_CLOEXEC, 0) << "programs that the daemon starts do not need it";
    close(open[0]);
}

TEST_F(FpgaLoading, WithoutMemoryTheLoadEndsAtOnceAndLeavesNoDescriptor)
{
    makeBitfile();
    watchedSize = std::filesystem::file_size(bitfilePath);
    for (const int buffer : {1, 2}) {
        failing = buffer;
        EXPECT_FALSE(fpga.programFpga());
        EXPECT_EQ(failing, 0); // it did fail
        EXPECT_TRUE(descriptorsOf(bitfilePath).empty()) << buffer;
    }
    EXPECT_TRUE(log.lines().empty());
    EXPECT_TRUE(notes("spi").empty());
    const Lines gpio = notes("gpio"); // the lines stay exported
    EXPECT_EQ(Lines(gpio.begin(), gpio.begin() + 7), exportedAndPulsed);
    EXPECT_EQ(std::count(gpio.begin(), gpio.end(), unexported[0]), 0);
    EXPECT_EQ(std::count(gpio.begin(), gpio.end(), unexported[1]), 0);
}

TEST_F(FpgaLoading, RescanRemovesTheFunctionThenTheRootPortThenScans)
{
    EXPECT_EQ(fpga.pcieRescan(), 0);
    EXPECT_EQ(notes("pci"),
        (Lines{R"("file": "devices/0000:01:00.0/remove", "text": "1")",
            R"("file": "devices/0000:00:00.0/remove", "text": "1")", R"("file": "rescan", "text": "1")"}));
}

TEST_F(FpgaLoading, RescanWithoutPciReturnsTheShellsStatus)
{
    TearDown();
    std::filesystem::remove("/sys/bus/pci");
    testing::internal::CaptureStderr();
    EXPECT_NE(fpga.pcieRescan(), 0);
    testing::internal::GetCapturedStderr();
}
