#include "hardwaresuite.h"
#include "kit/crc.h"

#include <QFile>
#include <QRegularExpression>

namespace {

using namespace tessary::test;

// What the controller sends after "waiting update\n"  | what follows
// a package and its CRC                               | installed, "update ok\n"
// a wrong CRC, or the CRC's bytes reversed            | silence
// a gap of more than 10 s, or no CRC for 5 s          | silence
// size 0: one byte, CRC of nothing                    | an empty package, which dpkg refuses; "update ok\n"
// a negative size, also one that wraps to it          | silence, at once
// a size beyond the memory that is left               | silence, at once
// In each case networking is off, and the daemon answers afterwards.

class Update : public HardwareSuite
{
protected:
    void SetUp() override
    {
        HardwareSuite::SetUp();
        startDaemon();
    }

    void TearDown() override
    {
        EXPECT_EQ(shellCommands().filter("networking"),
            (QStringList{"nmcli networking on", "nmcli networking off"}));
        EXPECT_EQ(instrument().exec({"nmcli", "networking"}).output, "disabled\n");
        EXPECT_EQ(version().substr(0, 8), "SV: mx8 ");
        HardwareSuite::TearDown();
    }

    /// A package with a payload of random bytes.
    static QByteArray makePackage(int payloadBytes)
    {
        const QString file = instrument().path("update.deb");
        const CommandResult made = runCommand(TESSARY_SOURCE_DIR "/bench/counterparts/make-package",
            {"--bytes", QString::number(payloadBytes), file});
        EXPECT_TRUE(made.ok()) << made.errors.constData();
        return contentOf(file);
    }

    /// Asks for an update of this size and waits for the prompt.
    void begin(const std::string& size)
    {
        line().write("update " + size + "\n");
        EXPECT_EQ(line().readLine(BurstLine::patience), "waiting update\n");
    }

    static std::string crcOf(const QByteArray& image)
    {
        const std::uint32_t crc = crc32Mpeg2({image.begin(), image.end()});
        std::string bytes;
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(crc >> shift & 0xFF);
        return bytes;
    }

    /// Runs a program among the instrument's files with the rights of this test: those inside may not mount.
    static void inMountNamespace(const QStringList& command)
    {
        const QStringList place{
            "--target", QString::number(instrument().daemonPid()), "--pid", "--mount", "--root", "--wdns=/"};
        const CommandResult result = runCommand("nsenter", place + command);
        ASSERT_TRUE(result.ok()) << result.errors.constData();
    }

    /// The update ends with this in the log, and in silence.
    void expectRefusal(const QByteArray& logLine)
    {
        EXPECT_TRUE(logged(logLine));
        EXPECT_EQ(line().finish(), "");
        EXPECT_TRUE(shellCommands().filter("dpkg").isEmpty());
    }
};

} // namespace

TEST_F(Update, ATwoMegabytePackageIsInstalled)
{
    const QByteArray package = makePackage(2000000);
    begin(std::to_string(package.size()));
    line().write(package.toStdString());
    line().write(crcOf(package));
    EXPECT_EQ(line().readLine(BurstLine::patience), "update ok\n");
    // Networking is off by then: the link watch may already have stopped the routing daemon behind them.
    const QStringList installing = shellCommands().filter(QRegularExpression("dpkg|sync"));
    EXPECT_EQ(installing,
        (QStringList{
            "dpkg --add-architecture armhf", "cd /tmp && sudo dpkg -i --force-all Tessary.deb", "sync"}));
    EXPECT_TRUE(instrument().shell("dpkg -s tessary-update").contains("Version: 1.5\n"));
    EXPECT_EQ(instrument().shell("stat -c %s /usr/share/tessary-update/payload"), "2000000\n");
    EXPECT_EQ(instrument().shell("cat /tmp/Tessary.deb"), package);
}

TEST_F(Update, AWrongCrcInstallsNothing)
{
    const QByteArray image(5000, 'x');
    begin("5000");
    line().write(image.toStdString() + "1234");
    expectRefusal("crcread: 875770417\n");
}

TEST_F(Update, ACrcInReverseOrderInstallsNothing)
{
    const QByteArray image(5000, 'x');
    std::string crc = crcOf(image);
    begin("5000");
    line().write(image.toStdString() + std::string(crc.rbegin(), crc.rend()));
    expectRefusal("crcread: ");
}

TEST_F(Update, AGapOfElevenSecondsEndsIt)
{
    begin("5000");
    line().write(std::string(2000, 'x'));
    expectRefusal("Waiting bytes too long time !");
    EXPECT_TRUE(logged("receivedbytes=2000"));
}

TEST_F(Update, WithoutCrcItEndsAfterFiveSeconds)
{
    begin("5000");
    line().write(std::string(5000, 'x'));
    expectRefusal("No CRC received !");
}

TEST_F(Update, SizeZeroTakesOneByteAndTheCrcOfNothing)
{
    begin("0");
    line().write("x\xFF\xFF\xFF\xFF");
    EXPECT_EQ(line().readLine(BurstLine::patience), "update ok\n");
    EXPECT_EQ(instrument().shell("stat -c %s /tmp/Tessary.deb"), "0\n");
}

TEST_F(Update, ANegativeSizeEndsAtOnce)
{
    begin("-5");
    expectRefusal("Malloc problem!");
}

TEST_F(Update, ASizeThatWrapsToANegativeOneEndsAtOnce)
{
    begin("3000000000"); // counted in 32 bits, with a sign
    expectRefusal("Malloc problem!");
}

TEST_F(Update, ASizeBeyondTheMemoryThatIsLeftEndsAtOnce)
{
    writeContent(instrument().sharedFile("meminfo"),
        "MemTotal:        4000000 kB\nMemFree:         100000 kB\nMemAvailable:    200000 kB\n");
    inMountNamespace({"mount", "--bind", "/run/bench/meminfo", "/proc/meminfo"});
    begin("204800001"); // one byte more than is available
    expectRefusal("Malloc problem!");
    inMountNamespace({"umount", "/proc/meminfo"});
}
