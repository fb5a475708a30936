#include "system/system_config.h"

#include "support/privatemachine.h"
#include "support/ttyfixture.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>
#include <unistd.h>

namespace fs = std::filesystem;
using Calls = std::vector<std::string>;

namespace {

/// Flags of the descriptor that was closed last, as fcntl(F_GETFD) gives them.
int lastClosedFlags = -1;

/// So many lines of a program's output can be read, and then nothing more; without a value, all.
std::optional<int> readableLines;

/// From now on, every read fails.
void breakReading(std::FILE* file)
{
    const int folder = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC); // has no bytes to read
    dup2(folder, fileno(file));
    close(folder);
}

} // namespace

int realClose(int fd) __asm__("__real_close");
int closeAndNote(int fd) __asm__("__wrap_close");
int closeAndNote(int fd)
{
    lastClosedFlags = fcntl(fd, F_GETFD);
    return realClose(fd);
}

char* realFgets(char* line, int size, std::FILE* file) __asm__("__real_fgets");
char* fgetsOfReadable(char* line, int size, std::FILE* file) __asm__("__wrap_fgets");
char* fgetsOfReadable(char* line, int size, std::FILE* file)
{
    if (readableLines) {
        const int left = (*readableLines)--;
        if (left == 0)
            breakReading(file);
        else if (left < 0)
            throw std::logic_error("it reads on behind an error");
    }
    return realFgets(line, size, file);
}

namespace {

const fs::path stagedKernel = "/home/ondrak/Tessary/kernel";

/// A private machine with /home covered and recorded cp, rm, sync and reboot.
class StagedKernel : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string reason = privatemachine::enter();
        if (reason.empty())
            reason = privatemachine::coverWithEmpty("/home");
        if (!reason.empty())
            GTEST_SKIP() << reason;
        for (const char* name : {"cp", "rm", "sync", "reboot"})
            m_programs.add(name);
    }

    Calls calls() const { return m_programs.calls(); }

private:
    RecordedPrograms m_programs;
};

} // namespace

TEST_F(StagedKernel, NothingStagedRunsNothing)
{
    EXPECT_EQ(systconf.UpdateBootPartition(), 0);
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(StagedKernel, StagedFilesAreCopiedRemovedAndTheUnitReboots)
{
    fs::create_directories(stagedKernel / "boot");
    std::ofstream(stagedKernel / "boot/Image") << "kernel";
    systconf.UpdateBootPartition();
    const Calls expected{
        "cp|-r|/home/ondrak/Tessary/kernel/boot|/", "rm|-r|/home/ondrak/Tessary/kernel", "sync", "reboot"};
    EXPECT_EQ(calls(), expected);
}

TEST_F(StagedKernel, AnEmptyStagingFolderStillIsRemovedAndTheUnitStillReboots)
{
    fs::create_directories(stagedKernel);
    systconf.UpdateBootPartition();
    // The shell finds nothing to expand and hands cp the pattern itself, which fails there.
    const Calls expected{
        "cp|-r|/home/ondrak/Tessary/kernel/*|/", "rm|-r|/home/ondrak/Tessary/kernel", "sync", "reboot"};
    EXPECT_EQ(calls(), expected);
}

TEST(Mixer, BothLevelsAreSetEvenWhenTheFirstFails)
{
    RecordedPrograms programs;
    programs.add("amixer", "", "no such control\n", 1);
    EXPECT_NE(systconf.SetAlsaVolume(), 0);
    const Calls expected{"amixer|sset|PCM|80%", "amixer|sset|Headphone|92%"};
    EXPECT_EQ(programs.calls(), expected);
}

TEST(Mixer, TheStatusIsThatOfTheSecondCommand)
{
    RecordedPrograms programs;
    programs.addScript("amixer", "case \"$2\" in PCM) exit 1;; esac");
    EXPECT_EQ(systconf.SetAlsaVolume(), 0);
}

class Console : public ControllerLine
{
};

TEST_F(Console, EachMessageIsWrittenAsItStands)
{
    const std::string text = "StopSmcroute()\r\n";
    EXPECT_EQ(systconf.special_debug(text.data(), static_cast<int>(text.size())), 0);
    // The device gets no settings from us: what the line discipline makes of the line feed is the console's
    // affair.
    EXPECT_EQ(console().readUntilQuiet(), text);
}

TEST_F(Console, AnEmptyMessageWritesNothing)
{
    EXPECT_EQ(systconf.special_debug("", 0), 0);
    EXPECT_EQ(console().readUntilQuiet(), "");
}

TEST_F(Console, AProgramStartedMeanwhileDoesNotKeepIt)
{
    EXPECT_EQ(systconf.special_debug("x", 1), 0);
    EXPECT_EQ(lastClosedFlags, FD_CLOEXEC);
}

TEST(ConsoleAbsent, TheMessageIsLostSilently)
{
    const std::string reason = privatemachine::enter();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    LogCapture log;
    EXPECT_EQ(systconf.special_debug("lost\r\n", 6), -1);
    EXPECT_TRUE(log.lines().empty());
}

TEST(ShellOutput, AllOfStandardOutputComesBackAndStandardErrorDoesNot)
{
    std::string longLine(1000, 'x');
    EXPECT_EQ(systconf.Ping("printf 'one\\ntwo'; printf lost >&2"), "one\ntwo");
    EXPECT_EQ(systconf.Ping("printf " + longLine), longLine);
    EXPECT_EQ(systconf.Ping("exit 3"), "");
}

TEST(ShellOutput, AReadThatFailsEndsIt)
{
    readableLines = 1;
    EXPECT_EQ(systconf.Ping("printf 'one\\n'"), "one\n");
    readableLines.reset();
}
