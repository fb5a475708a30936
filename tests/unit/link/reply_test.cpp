// Replies on a line that keeps what its buffer has room for and loses the rest, as the UART does.
//
//   what is written since the line was empty    expected
//   no more than the buffer takes               one write for a reply, nobody waits
//   more                                        waits for an empty line first, nothing is lost
//   a reply longer than the buffer              several writes, nothing is lost
//   a chunk longer than the buffer, of a line   one more write for the rest, nothing is lost
//   that has sent nothing of it yet
#include "commands/reply.h"
#include "commands/uart_command.h"
#include "kit/gstreamer.h"
#include "link/serialport.h"
#include "measure/ethernetmeasurement.h"
#include "media/udpsource.h"
#include "standins.h"
#include "support/allocations.h"
#include "support/privatemachine.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

constexpr std::size_t bufferBytes = 4095;
struct
{
    std::string received; ///< what leaves the line in the end
    std::vector<std::size_t> writes;
    std::size_t pending = 0; ///< in the buffer
    std::size_t leavesAtOnce = 1; ///< of a write to an empty line
    int drains = 0;
} line;

} // namespace

int takeWrite(SerialPort*, const char* bytes, int length) __asm__(
    "__wrap__ZN10SerialPort15SerialPortWriteEPKci");
int takeWrite(SerialPort*, const char* bytes, int length)
{
    const std::size_t taken =
        std::min(static_cast<std::size_t>(length), bufferBytes + line.leavesAtOnce - line.pending);
    line.writes.push_back(static_cast<std::size_t>(length));
    line.received.append(bytes, taken);
    line.pending += taken;
    return static_cast<int>(taken);
}

void drain(SerialPort*) __asm__("__wrap__ZN10SerialPort11DrainOutputEv");
void drain(SerialPort*)
{
    ++line.drains;
    line.pending = 0;
}

namespace {

using Sizes = std::vector<std::size_t>;

std::string madeText(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>(i * 31 + i / 251);
    return text;
}

class Replies : public ::testing::Test
{
protected:
    /// One byte was written since the line was empty.
    Replies()
    {
        reply(madeText(bufferBytes));
        reply("x");
        line = {};
        line.pending = 1;
    }
};

TEST_F(Replies, AReplyIsOneWrite)
{
    EXPECT_EQ(reply("*0C_d.SX"), 8);
    EXPECT_EQ(reply(madeText(bufferBytes - 9)), static_cast<int>(bufferBytes - 9));
    EXPECT_EQ(line.writes, (Sizes{8, bufferBytes - 9}));
    EXPECT_EQ(line.drains, 0); // there was room for both
    EXPECT_EQ(reply(""), 0);
    EXPECT_EQ(line.writes.size(), 2U);
}

TEST_F(Replies, TheByteThatWouldNotFitWaitsForAnEmptyLine)
{
    reply(madeText(bufferBytes - 1));
    EXPECT_EQ(line.drains, 0);
    reply("y");
    EXPECT_EQ(line.drains, 1);
    EXPECT_EQ(line.received, madeText(bufferBytes - 1) + "y");
}

TEST_F(Replies, ALongReplyComesWholeAndInAsFewWritesAsItTakes)
{
    const std::string text = madeText(2 * bufferBytes + 5);
    EXPECT_EQ(reply(text), 5);
    EXPECT_EQ(line.received, text);
    EXPECT_EQ(line.writes, (Sizes{bufferBytes, bufferBytes, 5}));
    EXPECT_EQ(line.drains, 3); // one for what stood in the line before
}

TEST_F(Replies, ByteByByteIsOneByteAWrite)
{
    const std::string text = madeText(3 * bufferBytes);
    replyByteByByte(text);
    EXPECT_EQ(line.received, text);
    EXPECT_EQ(line.writes, Sizes(text.size(), 1));
    EXPECT_EQ(line.drains, 3);
    line.received.clear();
    replyByteByByte(std::vector<std::uint8_t>(text.begin(), text.end()));
    EXPECT_EQ(line.received, text);
}

TEST_F(Replies, ATableIsNotCopiedOnItsWay)
{
    const std::vector<std::uint8_t> table(100000, 't');
    line.received.reserve(table.size());
    line.writes.reserve(table.size());
    allocations::resetPeak();
    replyByteByByte(table);
    EXPECT_EQ(line.received.size(), table.size());
    EXPECT_EQ(allocations::peak(), 0U);
}

TEST_F(Replies, ManyShortRepliesOfOneBurstComeWhole)
{
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        const std::string text = "reply number " + std::to_string(i) + " of a burst\n";
        expected += text;
        if (i % 2 == 0)
            reply(text);
        else
            replyByteByByte(text);
    }
    EXPECT_EQ(line.received, expected);
    EXPECT_EQ(line.drains, 1);
}

TEST_F(Replies, AnInterfaceStatusLongerThanTheBufferComesWhole)
{
    RecordedPrograms programs;
    const std::string addresses(5000, 'a');
    programs.add("ifconfig", addresses);
    programs.add("ethtool", "Speed: 100Mb/s\n");
    Uart_IpStatus();
    EXPECT_EQ(line.received, addresses + "Speed: 100Mb/s\n");
}

TEST_F(Replies, AStatusThatFitsIsOneWriteBehindALongReply)
{
    RecordedPrograms programs;
    const std::string addresses(3000, 'a');
    programs.add("ifconfig", addresses);
    programs.add("ethtool", "Speed: 100Mb/s\n");
    replyByteByByte(madeText(4000));
    line.writes.clear();
    Uart_IpStatus();
    EXPECT_EQ(line.received, madeText(4000) + addresses + "Speed: 100Mb/s\n");
    EXPECT_EQ(line.writes, Sizes{3015});
}

/// With an extractor whose last frame the test sets.
class T2miReplies : public Replies
{
protected:
    T2miReplies()
    {
        tessary::test::startGStreamer();
        standins::add();
        data.serverProtocol = protocolUdpT2mi;
        T2MI_Config_Struct config{64, 0};
        instance = new udpsource("127.0.0.1", "5004", &config);
    }

    ~T2miReplies() override
    {
        delete instance;
        instance = nullptr;
        data = MyData();
        standins::setT2miFrame({});
    }

    /// Writes of a frame of this size; the frame comes whole.
    static Sizes writesOfFrame(std::size_t size)
    {
        const std::string frame = madeText(size);
        standins::setT2miFrame({frame.begin(), frame.end()});
        line.received.clear();
        line.writes.clear();
        line.drains = 0;
        Uart_GetT2MIFrame();
        EXPECT_EQ(line.received, frame);
        return line.writes;
    }
};

TEST_F(T2miReplies, AFrameIsWrittenInChunksWithTheLineDrainedBetweenTwo)
{
    EXPECT_EQ(writesOfFrame(4095), Sizes{4095});
    EXPECT_EQ(writesOfFrame(4096), Sizes{4096});
    EXPECT_EQ(writesOfFrame(4097), (Sizes{4096, 1}));
    EXPECT_EQ(writesOfFrame(8192), (Sizes{4096, 4096}));
    EXPECT_EQ(line.drains, 2); // one for the frame before
    EXPECT_EQ(writesOfFrame(8202), (Sizes{4096, 4096, 10}));
    EXPECT_EQ(line.drains, 3);
}

TEST_F(T2miReplies, AChunkThatTheLineTakesButForItsLastByteComesWhole)
{
    line.leavesAtOnce = 0;
    EXPECT_EQ(writesOfFrame(4095), Sizes{4095});
    EXPECT_EQ(writesOfFrame(4096), (Sizes{4096, 1}));
    EXPECT_EQ(writesOfFrame(8202), (Sizes{4096, 1, 4096, 1, 10}));
}

} // namespace
