// The recorder commands on a private card; the export goes to a named pipe in the place of the FPGA's stream
// device.
#include "commands/uart_command.h"
#include "kit/handlertest.h"
#include "kit/samples.h"
#include "measure/ethernetmeasurement.h"
#include "media/filesource.h"
#include "media/pciesource.h"
#include "support/eventually.h"
#include "support/privatemachine.h"
#include "support/testfiles.h"
#include "support/thisprocess.h"
#include "support/virtualtime.h"
#include "writtenblocks.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

const std::string card = "/run/media/mmcblk1p1";
const std::string recording = card + "/record.ts";
const char* const device = "/dev/xillybus_write_8";

std::string pattern(std::size_t bytes)
{
    std::string text(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
        text[i] = static_cast<char>((i * 31 + i / 256) & 0xFF);
    return text;
}

class PvrCommands : public HandlerTest
{
protected:
    void prepare() override
    {
        ASSERT_EQ(privatemachine::coverWithEmpty("/run"), "");
        std::filesystem::create_directories(card);
        log.forget();
    }

    void TearDown() override
    {
        if (m_pipe != -1)
            close(m_pipe);
        unlink(device); // a pipe that nobody reads would hold the next export up
        HandlerTest::TearDown();
    }

    /// The device as a pipe that takes `capacity` bytes until somebody reads.
    void makeDevice(int capacity)
    {
        unlink(device);
        ASSERT_EQ(mkfifo(device, 0600), 0);
        m_pipe = open(device, O_RDWR | O_NONBLOCK | O_CLOEXEC);
        ASSERT_NE(m_pipe, -1);
        ASSERT_GE(fcntl(m_pipe, F_SETPIPE_SZ, capacity), capacity);
    }

    int waitingInDevice() const
    {
        int bytes = 0;
        ioctl(m_pipe, FIONREAD, &bytes);
        return bytes;
    }

    std::string takeFromDevice()
    {
        std::string all;
        char buffer[65536];
        for (ssize_t n = 0; (n = read(m_pipe, buffer, sizeof buffer)) > 0;)
            all.append(buffer, static_cast<std::size_t>(n));
        return all;
    }

    /// The log without the media engine's banners.
    std::vector<std::string> exportLines() const
    {
        std::vector<std::string> lines = log.lines();
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                        [](const std::string& line) { return line.compare(0, 3, "---") == 0; }),
            lines.end());
        return lines;
    }

    long countLines(const std::string& line) const
    {
        const std::vector<std::string> all = log.lines();
        return std::count(all.begin(), all.end(), line);
    }

    LogCapture log;

private:
    int m_pipe = -1;
};

} // namespace

TEST_F(PvrCommands, ReclistNamesTheSizeOfTheRecording)
{
    writeFile(recording, pattern(188));
    Uart_PVR_Reclist();
    EXPECT_EQ(reply(), "reclist file:188 Bytes");
    EXPECT_TRUE(log.contains("Uart_PVR_reclist"));
}

TEST_F(PvrCommands, ReclistOfALargeRecordingHasAllItsDigits)
{
    writeFile(recording, "");
    std::filesystem::resize_file(recording, 18800000);
    Uart_PVR_Reclist();
    EXPECT_EQ(reply(), "reclist file:18800000 Bytes");
    std::filesystem::resize_file(recording, 5000000000);
    Uart_PVR_Reclist();
    EXPECT_EQ(reply(), "reclist file:5000000000 Bytes");
}

TEST_F(PvrCommands, ReclistWithoutCardIsZeroBytes)
{
    std::filesystem::remove_all(card);
    Uart_PVR_Reclist();
    EXPECT_EQ(reply(), "reclist file:0 Bytes");
}

TEST_F(PvrCommands, RecordTakesTheSourceThatIsThere)
{
    writeFile("/run/stream.ts", pattern(188000));
    instance = new filesource("/run/stream.ts");
    gstsource* before = instance;
    Uart_PVR_Record();
    EXPECT_EQ(instance, before);
    EXPECT_TRUE(eventually([] { return readFile(recording).size() == 188000; }));
    EXPECT_EQ(reply(), "");
    Uart_PVR_Stop();
    EXPECT_EQ(readFile(recording), pattern(188000));
}

TEST_F(PvrCommands, RecordWithoutSourceTakesTheFpgaStream)
{
    Uart_PVR_Record();
    EXPECT_NE(dynamic_cast<pciesource*>(instance), nullptr);
    EXPECT_EQ(reply(), "");
    EXPECT_TRUE(log.contains("Uart_PVR_Record\n"));
}

TEST_F(PvrCommands, ScanReplacesAnySourceByTheRecording)
{
    writeFile(recording, pattern(188));
    instance = new pciesource;
    Uart_PVR_Scan();
    EXPECT_NE(dynamic_cast<filesource*>(instance), nullptr);
    EXPECT_EQ(reply(), "");
    EXPECT_TRUE(log.contains("Uart_PVR_Scan"));
}

TEST_F(PvrCommands, ScanFindsTheProgramsOfARecordedBroadcast)
{
    const auto sample = tessary::test::samplePath("h264.ts");
    if (!sample.has_value())
        GTEST_SKIP() << tessary::test::missingSample("h264.ts");
    std::filesystem::copy_file(*sample, recording);
    Uart_PVR_Scan();
    EXPECT_TRUE(eventually([] { return instance->getTotalNumberOfProgramsFound() > 0; }));
}

TEST_F(PvrCommands, StopDiscardsTheSource)
{
    instance = new pciesource;
    Uart_PVR_Stop();
    EXPECT_EQ(instance, nullptr);
    Uart_PVR_Stop(); // nothing to stop
    EXPECT_EQ(reply(), "");
    EXPECT_EQ(countLines("Uart_PVR_Stop"), 2);
}

TEST_F(PvrCommands, ExportAcknowledgesAtOnceAndCopiesTheRecording)
{
    writeFile(recording, pattern(2500));
    makeDevice(65536);
    instance = new pciesource;
    const WrittenBlocks blocks(device);
    Uart_PVR_Export();
    EXPECT_EQ(blocks.sizes(), (std::vector<std::size_t>{1024, 1024, 452}));
    EXPECT_EQ(instance, nullptr);
    EXPECT_EQ(reply(), "PVR_export_ok\n");
    EXPECT_EQ(takeFromDevice(), pattern(2500));
    EXPECT_EQ(exportLines(), (std::vector<std::string>{"Uart_PVR_Export", "Export remaining=1476"}));
}

TEST_F(PvrCommands, ExportLogsItsProgressEveryHundredBlocks)
{
    writeFile(recording, pattern(201 * 1024));
    makeDevice(1 << 20);
    Uart_PVR_Export();
    EXPECT_EQ(takeFromDevice(), pattern(201 * 1024));
    EXPECT_EQ(exportLines(),
        (std::vector<std::string>{
            "Uart_PVR_Export", "Export remaining=204800", "Export remaining=102400", "Export remaining=0"}));
}

TEST_F(PvrCommands, ExportGivesTheDriverASecondBeforeTheDeviceIsClosed)
{
    writeFile(recording, pattern(2500));
    makeDevice(65536);
    const auto openBefore = openDescriptors();
    std::vector<std::int64_t> waits;
    const virtualtime::Scope waitsPassAtOnce([&](std::int64_t us) {
        waits.push_back(us);
        EXPECT_EQ(openDescriptors(), openBefore + 2); // the recording and the device
        EXPECT_EQ(waitingInDevice(), 2500);
    });
    Uart_PVR_Export();
    EXPECT_EQ(waits, std::vector<std::int64_t>{1000000});
    EXPECT_EQ(openDescriptors(), openBefore);
}

TEST_F(PvrCommands, ExportOfAnEmptyRecordingEndsAfterOneEmptyBlock)
{
    writeFile(recording, "");
    makeDevice(65536);
    const WrittenBlocks blocks(device);
    const auto openBefore = openDescriptors();
    Uart_PVR_Export();
    EXPECT_EQ(openDescriptors(), openBefore);
    EXPECT_EQ(blocks.sizes(), std::vector<std::size_t>{0});
    EXPECT_EQ(reply(), "PVR_export_ok\n");
    EXPECT_EQ(takeFromDevice(), "");
    EXPECT_EQ(exportLines(), (std::vector<std::string>{"Uart_PVR_Export", "Export remaining=0"}));
}

TEST_F(PvrCommands, ExportWithoutRecordingOrDeviceIsAcknowledgedAllTheSame)
{
    Uart_PVR_Export();
    writeFile(recording, pattern(10));
    Uart_PVR_Export(); // now the recording is there, and no device
    EXPECT_EQ(reply(), "PVR_export_ok\nPVR_export_ok\n");
    EXPECT_EQ(countLines("Uart_PVR_Export"), 2);
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(PvrCommands, ExportToAStalledDeviceTimesOutAfterSixSeconds)
{
    writeFile(recording, pattern(20000));
    makeDevice(4096);
    const auto start = std::chrono::steady_clock::now();
    Uart_PVR_Export();
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::seconds(6));
    EXPECT_EQ(countLines("TIMEOUT Uart_Export"), 1);
    const std::string taken = takeFromDevice();
    EXPECT_EQ(taken, pattern(20000).substr(0, taken.size()));
    EXPECT_LT(taken.size(), 20000u);
}

TEST_F(PvrCommands, ExportEndsWhenTheRecordingBecomesShorter)
{
    writeFile(recording, pattern(1000000));
    makeDevice(65536);
    std::atomic<bool> ended{false};
    std::thread card([this, &ended] {
        eventually([this] { return waitingInDevice() > 60000; });
        std::filesystem::resize_file(recording, 1000);
        while (!ended) {
            takeFromDevice();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    Uart_PVR_Export();
    ended = true;
    card.join();
    EXPECT_TRUE(log.contains("Export: the recording can not be read any further; check the card"));
    EXPECT_FALSE(log.contains("TIMEOUT Uart_Export"));
}

TEST_F(PvrCommands, ExportFailsWhenTheDevicesNumberDoesNotFitTheWait)
{
    writeFile(recording, pattern(10));
    makeDevice(65536);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit raised{std::max<rlim_t>(limit.rlim_cur, 2048), limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    std::vector<int> taken;
    do {
        taken.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    } while (taken.back() != -1 && taken.back() < FD_SETSIZE);
    Uart_PVR_Export();
    for (const int fd : taken)
        close(fd);
    EXPECT_TRUE(log.contains("ERROR Uart_Export"));
    EXPECT_EQ(takeFromDevice(), "");
}
