// The software update: a controller on a thread of its own sends images and CRCs; the programs that install
// are recorded.
#include "commands/uart_command.h"
#include "kit/crc.h"
#include "link/serialport.h"
#include "support/eventually.h"
#include "support/privatemachine.h"
#include "support/testfiles.h"
#include "support/ttyfixture.h"
#include "support/virtualtime.h"

#include <functional>
#include <memory>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::int64_t secondUs = 1000000;

const std::string package = "/tmp/Tessary.deb";

std::string image(std::size_t bytes)
{
    std::string text(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
        text[i] = static_cast<char>((i * 7 + i / 256) & 0xFF);
    return text;
}

/// As the controller sends it: least significant byte first.
std::string crcBytes(const std::string& bytes)
{
    const std::uint32_t crc = tessary::test::crc32Mpeg2({bytes.begin(), bytes.end()});
    std::string out;
    for (int shift = 0; shift < 32; shift += 8)
        out += static_cast<char>(crc >> shift & 0xFF);
    return out;
}

class Update : public ControllerLine
{
protected:
    void SetUp() override
    {
        ControllerLine::SetUp();
        if (IsSkipped())
            return;
        ASSERT_EQ(privatemachine::coverWithEmpty("/tmp"), "");
        ASSERT_EQ(privatemachine::coverWithEmpty("/var/lib/dpkg"), "");
        writeFile("/var/lib/dpkg/status", "");
        programs = std::make_unique<RecordedPrograms>();
        for (const char* name : {"nmcli", "dpkg", "sudo", "sync"})
            programs->add(name);
    }

    /// Runs the command with this argument, and beside it the controller, once it was told to send. Returns
    /// everything that the daemon replied.
    std::string update(const std::string& argument, const std::function<void()>& sendImage)
    {
        std::string prompt;
        const virtualtime::Scope time;
        std::thread sender([&] {
            prompt = controller().read(15);
            sendImage();
        });
        Uart_Update(argument);
        sender.join();
        return prompt + controller().readUntilQuiet();
    }

    void send(const std::string& bytes) { controller().write(bytes); }

    /// On the controller's thread: so much time passes for the daemon, which then logs the line, or goes on
    /// waiting when none is given. The time of an update does not pass by itself.
    void passSeconds(int seconds, const char* line = nullptr)
    {
        EXPECT_TRUE(virtualtime::waitUntilNoted());
        virtualtime::advance(seconds * secondUs);
        if (!line) {
            EXPECT_TRUE(virtualtime::waitUntilNoted());
            return;
        }
        const bool logged = log.waitFor(line);
        EXPECT_TRUE(logged) << line;
        if (!logged)
            virtualtime::advance(1000 * secondUs); // ends the update all the same
    }

    std::string logText() const
    {
        std::string text;
        for (const std::string& line : log.lines())
            text += line;
        return text;
    }

    void expectNothingInstalled()
    {
        EXPECT_EQ(programs->calls(), std::vector<std::string>{"nmcli|networking|off"});
        EXPECT_FALSE(std::filesystem::exists(package));
    }

    std::unique_ptr<RecordedPrograms> programs;
    LogCapture log;
};

const std::vector<std::string> installation = {
    "nmcli|networking|off", "dpkg|--add-architecture|armhf", "sudo|dpkg|-i|--force-all|Tessary.deb", "sync"};

} // namespace

TEST_F(Update, APackageWithItsCrcIsStoredAndInstalled)
{
    const std::string bytes = image(3500);
    const std::string replies = update("3500\n", [&] { send(bytes + crcBytes(bytes)); });
    EXPECT_EQ(replies, "waiting update\nupdate ok\n");
    EXPECT_EQ(readFile(package), bytes);
    EXPECT_EQ(programs->calls(), installation); // and no call that switches networking on again
    EXPECT_EQ(log.lines()[0], "UPDate\n");
    EXPECT_TRUE(log.contains("receivedbytes=1000\n"));
    EXPECT_TRUE(log.contains("receivedbytes=3000\n"));
    EXPECT_FALSE(log.contains("receivedbytes=3500\n"));
}

TEST_F(Update, InstallationRunsInTheFolderOfThePackage)
{
    programs->addScript("sudo", "pwd > /tmp/folder");
    const std::string bytes = image(10);
    update("10\n", [&] { send(bytes + crcBytes(bytes)); });
    EXPECT_EQ(readFile("/tmp/folder"), "/tmp\n");
}

TEST_F(Update, AFailingInstallationIsAnsweredAllTheSame)
{
    programs->add("sudo", "", "", 1);
    programs->add("dpkg", "", "", 2);
    const std::string bytes = image(10);
    EXPECT_EQ(update("10\n", [&] { send(bytes + crcBytes(bytes)); }), "waiting update\nupdate ok\n");
    EXPECT_EQ(programs->calls(), installation);
}

TEST_F(Update, AMissingPackageDatabaseIsCreatedFirst)
{
    std::filesystem::remove("/var/lib/dpkg/status");
    const std::string bytes = image(10);
    update("10\n", [&] { send(bytes + crcBytes(bytes)); });
    ASSERT_EQ(programs->calls().size(), installation.size() + 1);
    EXPECT_EQ(programs->calls()[1], "sudo|touch|/var/lib/dpkg/status");
}

TEST_F(Update, AWrongCrcEndsInSilence)
{
    const std::string bytes = image(100);
    EXPECT_EQ(update("100\n", [&] { send(bytes + std::string("\x01\x02\x03\x04")); }), "waiting update\n");
    EXPECT_TRUE(log.contains("crcread: 67305985\n"));
    expectNothingInstalled();
}

TEST_F(Update, BothCrcsAreLoggedAsSignedDecimals)
{
    // CRC-32/MPEG-2 of the nine digits is 0x0376E6E7; the CRC sent is 0xFFFFFFFE.
    update("9\n", [&] { send("123456789\xFE\xFF\xFF\xFF"); });
    EXPECT_TRUE(log.contains("crcread: -2\n"));
    EXPECT_TRUE(log.contains("crccalc: 58124007\n"));
}

TEST_F(Update, ACrcWithItsMostSignificantByteFirstNeverMatches)
{
    const std::string bytes = image(100);
    const std::string crc = crcBytes(bytes);
    EXPECT_EQ(
        update("100\n", [&] { send(bytes + std::string(crc.rbegin(), crc.rend())); }), "waiting update\n");
    expectNothingInstalled();
}

TEST_F(Update, ACrcInTwoPiecesIsComparedAfterTheFirst)
{
    const std::string bytes = image(100);
    const std::string crc = crcBytes(bytes);
    const std::string replies = update("100\n", [&] {
        send(bytes + crc.substr(0, 1));
        EXPECT_TRUE(log.waitFor("crcread: "));
        send(crc.substr(1));
    });
    EXPECT_EQ(replies, "waiting update\n");
    expectNothingInstalled();
    EXPECT_TRUE(
        eventually([] { return uart.IsInputBytesPending() == 3; })); // for the dispatcher, as command text
}

TEST_F(Update, TheBytesOfACrcThatHaveNotComeAreThoseOfTheOneBefore)
{
    const std::string bytes = image(120);
    const std::string crc = crcBytes(bytes);
    EXPECT_EQ(update("120\n", [&] { send(bytes + crc); }), "waiting update\nupdate ok\n");
    EXPECT_EQ(update("120\n", [&] { send(bytes + crc.substr(0, 1)); }),
        "waiting update\nupdate ok\n"); // meant: no byte is cleared

    const std::string other = image(121);
    ASSERT_NE(crcBytes(other).substr(1), crc.substr(1));
    EXPECT_EQ(update("121\n", [&] { send(other + crcBytes(other).substr(0, 1)); }), "waiting update\n");
}

TEST_F(Update, SizeZeroTakesOneByteAndTheCrcOfAnEmptyImage)
{
    EXPECT_EQ(update("0\n", [&] { send("x\xFF\xFF\xFF\xFF"); }), "waiting update\nupdate ok\n");
    EXPECT_TRUE(std::filesystem::exists(package));
    EXPECT_EQ(readFile(package), "");
    EXPECT_TRUE(log.contains("crccalc: -1\n"));
}

TEST_F(Update, ATextWithoutDigitsIsSizeZero)
{
    EXPECT_EQ(update("\n", [&] { send("x\xFF\xFF\xFF\xFF"); }), "waiting update\nupdate ok\n");
    EXPECT_EQ(update("", [&] { send("x\xFF\xFF\xFF\xFF"); }), "waiting update\nupdate ok\n");
    EXPECT_EQ(readFile(package), "");
}

TEST_F(Update, ANegativeSizeHasNoMemory)
{
    EXPECT_EQ(update("-1\n", [] {}), "waiting update\n");
    EXPECT_TRUE(log.contains("Malloc problem!\n"));
    expectNothingInstalled();
}

TEST_F(Update, SizesThatWrapToANegativeOneHaveNoMemory)
{
    for (const char* size : {"2147483648\n", "-2147483648\n", "99999999999999999999\n"}) {
        log.forget();
        EXPECT_EQ(update(size, [] {}), "waiting update\n");
        EXPECT_TRUE(log.contains("Malloc problem!\n")) << size;
    }
    EXPECT_FALSE(std::filesystem::exists(package));
}

TEST_F(Update, ASizeBeyondTheAvailableMemoryHasNoMemory)
{
    // The system would promise such a block and end the daemon when it is filled.
    writeFile("/tmp/meminfo",
        "MemTotal:        1000000 kB\nMemFree:          1000 kB\nMemAvailable:       2000 kB\n");
    ASSERT_EQ(mount("/tmp/meminfo", "/proc/meminfo", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(update("2048001\n", [] {}), "waiting update\n");
    EXPECT_TRUE(log.contains("Malloc problem!\n"));
    const std::string bytes = image(2048000);
    EXPECT_EQ(update("2048000\n", [&] { send(bytes + crcBytes(bytes)); }), "waiting update\nupdate ok\n");
    umount("/proc/meminfo");
}

TEST_F(Update, EachPauseOfTenSecondsIsTolerated)
{
    const std::string bytes = image(1010);
    const std::string replies = update("1010\n", [&] {
        passSeconds(10);
        send(bytes.substr(0, 1000));
        EXPECT_TRUE(log.waitFor("receivedbytes=1000\n"));
        passSeconds(10);
        send(bytes.substr(1000) + crcBytes(bytes));
    });
    EXPECT_EQ(replies, "waiting update\nupdate ok\n") << logText();
}

TEST_F(Update, APauseOfElevenSecondsEndsTheTransfer)
{
    const std::string bytes = image(1010);
    const std::string replies = update("1010\n", [&] {
        send(bytes.substr(0, 1000));
        EXPECT_TRUE(log.waitFor("receivedbytes=1000\n"));
        passSeconds(11, "Waiting bytes too long time !\n");
        send(bytes.substr(1000) + crcBytes(bytes));
    });
    EXPECT_EQ(replies, "waiting update\n");
    expectNothingInstalled();
}

TEST_F(Update, AControllerThatSendsNothingIsGivenUp)
{
    EXPECT_EQ(
        update("20\n", [&] { passSeconds(11, "Waiting bytes too long time !\n"); }), "waiting update\n");
    expectNothingInstalled();
}

TEST_F(Update, ACrcMayComeFiveSecondsAfterTheImage)
{
    const std::string bytes = image(1000);
    const std::string replies = update("1000\n", [&] {
        send(bytes);
        EXPECT_TRUE(log.waitFor("receivedbytes=1000\n"));
        passSeconds(5);
        send(crcBytes(bytes));
    });
    EXPECT_EQ(replies, "waiting update\nupdate ok\n") << logText();
}

TEST_F(Update, WithoutCrcTheHandlerReturnsAfterSixSeconds)
{
    const std::string replies = update("1000\n", [&] {
        send(image(1000));
        EXPECT_TRUE(log.waitFor("receivedbytes=1000\n"));
        passSeconds(6, "No CRC received !\n");
    });
    EXPECT_EQ(replies, "waiting update\n");
    expectNothingInstalled();
}

TEST_F(Update, APackageFileThatCanNotBeCreatedEndsInSilence)
{
    std::filesystem::create_directory(package);
    const std::string bytes = image(10);
    EXPECT_EQ(update("10\n", [&] { send(bytes + crcBytes(bytes)); }), "waiting update\n");
    EXPECT_EQ(programs->calls(), std::vector<std::string>{"nmcli|networking|off"});
}
