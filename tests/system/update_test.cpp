#include "hardwaresuite.h"
#include "kit/crc.h"

#include <QRegularExpression>

namespace {

using namespace tessary::test;

// A real package through the line into dpkg, and the real time of a gap. Every other transfer (CRC, sizes,
// memory, pauses) is a unit test's. In each case networking is off, and the daemon answers afterwards.

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

TEST_F(Update, AGapOfElevenSecondsEndsIt)
{
    begin("5000");
    line().write(std::string(2000, 'x'));
    expectRefusal("Waiting bytes too long time !");
    EXPECT_TRUE(logged("receivedbytes=2000"));
}
