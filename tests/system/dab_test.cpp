#include "hardwaresuite.h"

#include <random>

namespace {

using namespace tessary::test;

constexpr std::size_t blockBytes = 117;

class Dab : public HardwareSuite
{
protected:
    void SetUp() override
    {
        HardwareSuite::SetUp();
        startDaemon();
    }

    void TearDown() override
    {
        HardwareSuite::TearDown();
        // The receiver program is not the daemon's own: what it left running ends here.
        instrument().exec({"killall", "-q", "-w", "qt-dab"});
        instrument().shell("rm -f /usr/mysocket");
    }

    static void behave(const QByteArray& settings)
    {
        writeContent(instrument().sharedFile("dab.json"), settings);
    }
    static QByteArray receiverLog() { return contentOf(instrument().sharedFile("dab.log")); }

    /// Enters DAB mode; the daemon answers again when it has ended its attempts.
    void start() { EXPECT_EQ(ask("START_DAB\n"), ""); }
    void stop() { EXPECT_EQ(ask("STOP_DAB\n"), ""); }

    /// Relays one block; returns the answer.
    std::string relay(const std::string& command)
    {
        line().write(command);
        return line().readExactly(blockBytes, BurstLine::patience);
    }

    static std::string inverted(std::string block)
    {
        block.resize(blockBytes, '\0');
        for (char& byte : block)
            byte = static_cast<char>(~byte);
        return block;
    }
};

} // namespace

TEST_F(Dab, AReceiverThatOpensLateIsConnectedAndRelayedAndLeftAndStartedAgain)
{
    behave(R"({"open_after_s": 3})");
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        start();
        EXPECT_TRUE(receiverLog().contains(R"("platform": "wayland", "runtime": "/run/user/0")"));
        EXPECT_EQ(relay("dab tune 5A\n"), inverted("dab tune 5A\n"));
        stop();
        EXPECT_EQ(ask("dab tune 5A\n"), ""); // player mode again
    }
    QStringList expected;
    for (int round = 0; round < 2; ++round)
        expected << "systemctl start weston"
                 << "/home/ondrak/qt-dab/qt-dab &"
                 << "killall qt-dab"
                 << "systemctl stop weston";
    QStringList seen;
    for (const QString& command : shellCommands()) {
        if (command.contains("weston") || command.contains("qt-dab"))
            seen << command;
    }
    EXPECT_EQ(seen, expected);
}

TEST_F(Dab, AThousandBlocksOfRandomBytesPassUnchangedBothWays)
{
    behave(R"({"open_after_s": 0.5})");
    start();
    std::mt19937 random(2);
    std::string all;
    for (int i = 0; i < 1000; ++i) {
        std::string block = "dab";
        while (block.size() < blockBytes - 1)
            block += static_cast<char>(random() & 0xFF);
        block += '\n'; // ends the burst
        ASSERT_EQ(relay(block), inverted(block)) << "block " << i;
        all += block;
    }
    EXPECT_EQ(contentOf(instrument().sharedFile("dab-received.bin")).toStdString(), all);
    stop();
}
