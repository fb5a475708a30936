// The last T2-MI frame, as the extractor's property gives it.
#include "sourcetest.h"
#include "standins.h"

#include "media/rtpsource.h"
#include "media/udpsource.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Room for a frame, as a controller's handler gives it.
constexpr std::size_t frameRoom = 100000;

class T2miFrame : public SourceTest
{
protected:
    ~T2miFrame() override { standins::forgetT2miFrame(); }

    T2MI_Config_Struct config{64, 102};
    Bytes buffer = Bytes(frameRoom, 0xEE);
};

TEST_F(T2miFrame, WithoutT2miNothingIsWritten)
{
    standins::setT2miFrame({1, 2, 3});
    auto* udp = new udpsource("239.0.0.1", "1234", nullptr);
    hold(udp);
    EXPECT_EQ(udp->GetT2MIFrame(buffer.data()), 0);
    auto* rtp = new rtpsource("239.0.0.1", "1234", nullptr);
    hold(rtp);
    EXPECT_EQ(rtp->GetT2MIFrame(buffer.data()), 0);
    EXPECT_EQ(buffer, Bytes(frameRoom, 0xEE));
}

TEST_F(T2miFrame, WithoutABufferThereIsNoFrame)
{
    standins::setT2miFrame({1, 2, 3});
    auto* udp = new udpsource("239.0.0.1", "1234", &config);
    hold(udp);
    EXPECT_EQ(udp->GetT2MIFrame(nullptr), 0);
}

TEST_F(T2miFrame, EveryByteIsCopiedInOrder)
{
    Bytes frame(60000);
    for (std::size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
    standins::setT2miFrame(frame);
    auto* udp = new udpsource("239.0.0.1", "1234", &config);
    hold(udp);
    EXPECT_EQ(udp->GetT2MIFrame(buffer.data()), 60000);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 60000), frame);
    EXPECT_EQ(buffer[60000], 0xEE); // nothing behind the frame

    Bytes second(frameRoom, 0xEE);
    auto* rtp = new rtpsource("239.0.0.1", "1234", &config);
    hold(rtp);
    EXPECT_EQ(rtp->GetT2MIFrame(second.data()), 60000);
    EXPECT_EQ(second, buffer);
}

TEST_F(T2miFrame, BeforeTheFirstFrameThereIsNone)
{
    auto* udp = new udpsource("239.0.0.1", "1234", &config);
    hold(udp);
    EXPECT_EQ(udp->GetT2MIFrame(buffer.data()), 0);
    EXPECT_EQ(buffer.front(), 0xEE);
}

TEST_F(T2miFrame, AnEmptyFrameHasNoBytes)
{
    standins::setT2miFrame({});
    auto* udp = new udpsource("239.0.0.1", "1234", &config);
    hold(udp);
    EXPECT_EQ(udp->GetT2MIFrame(buffer.data()), 0);
    EXPECT_EQ(buffer.front(), 0xEE);
}

TEST_F(T2miFrame, EachReadGivesTheFrameOfThatMoment)
{
    auto* udp = new udpsource("239.0.0.1", "1234", &config);
    hold(udp);
    standins::setT2miFrame({1, 2, 3, 255});
    EXPECT_EQ(udp->GetT2MIFrame(buffer.data()), 4);
    EXPECT_EQ(buffer[3], 255);
    standins::setT2miFrame({9});
    EXPECT_EQ(udp->GetT2MIFrame(buffer.data()), 1);
    EXPECT_EQ(buffer[0], 9);
}

} // namespace
