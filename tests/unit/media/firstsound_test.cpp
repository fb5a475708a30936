// What the sound card of a live pipeline begins with.
#include "media/firstsound.h"

#include <gtest/gtest.h>

namespace {

// Buffers of 100 ms each. Slack: how long before it is to be heard it comes.
// came with a slack of             | goes to the sink
// -1 ms                            | nothing
// 0, any, any                      | the three together, and then each as it comes
// 230 ms                           | it, and then each as it comes
// -1 ms, for half a second         | the first after that, and then each as it comes

using Fate = FirstSound::Fate;
constexpr GstClockTimeDiff ms = GST_MSECOND;
constexpr GstClockTime start = 10 * GST_SECOND; // running time

class FirstSoundTest : public testing::Test
{
protected:
    ~FirstSoundTest() override { gst_clear_buffer(&m_passed); }

    Fate come(GstClockTimeDiff slackMs, GstClockTime now = start, GstClockTime length = 100 * ms)
    {
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, 100, nullptr);
        gst_buffer_memset(buffer, 0, ++m_number, 100);
        GST_BUFFER_PTS(buffer) = m_number * GST_SECOND;
        GST_BUFFER_DURATION(buffer) = length;
        const Fate fate = sound.take(buffer, slackMs * ms, now);
        if (fate == Fate::isDropped)
            gst_buffer_unref(buffer); // as GStreamer does
        if (fate == Fate::passes) {
            gst_clear_buffer(&m_passed);
            m_passed = buffer;
        }
        return fate;
    }

    /// The numbers of the buffers that passed as one the last time, in their order.
    std::string passed() const
    {
        std::string numbers;
        for (gsize at = 0; at < gst_buffer_get_size(m_passed); at += 100) {
            guint8 number = 0;
            gst_buffer_extract(m_passed, at, &number, 1);
            numbers += std::to_string(number) + " ";
        }
        return numbers;
    }

    GstBuffer* lastPassed() const { return m_passed; }

    FirstSound sound;

private:
    guint8 m_number = 0;
    GstBuffer* m_passed = nullptr; // owned
};

TEST_F(FirstSoundTest, WhatIsTooLateIsDropped)
{
    EXPECT_EQ(come(-1), Fate::isDropped);
    EXPECT_EQ(come(-1), Fate::isDropped);
}

TEST_F(FirstSoundTest, WhatTheCardTakesGoesToItInOnePiece)
{
    come(-1);
    EXPECT_EQ(come(0), Fate::isKept);
    EXPECT_EQ(come(-50), Fate::isKept);
    EXPECT_EQ(come(500), Fate::passes);
    EXPECT_EQ(passed(), "2 3 4 ");
    EXPECT_EQ(GST_BUFFER_PTS(lastPassed()), 2 * GST_SECOND);
    EXPECT_EQ(GST_BUFFER_DURATION(lastPassed()), GstClockTime(300 * ms));
    EXPECT_EQ(come(0), Fate::passes);
    EXPECT_EQ(passed(), "5 ");
    EXPECT_EQ(come(-1), Fate::passes) << "the sink knows what to do with it";
}

TEST_F(FirstSoundTest, TheCardTakesItsBufferAndAPeriod)
{
    EXPECT_EQ(come(0, start, 100 * ms), Fate::isKept);
    EXPECT_EQ(come(0, start, 109 * ms), Fate::isKept);
    EXPECT_EQ(come(0, start, 1 * ms), Fate::passes);
}

TEST_F(FirstSoundTest, WhatComesInGoodTimePasses)
{
    EXPECT_EQ(come(230), Fate::passes);
    EXPECT_EQ(passed(), "1 ");
    EXPECT_EQ(come(-1), Fate::passes);
}

TEST_F(FirstSoundTest, WhatComesInLessThanGoodTimeIsKept)
{
    EXPECT_EQ(come(229), Fate::isKept);
}

TEST_F(FirstSoundTest, WhatDoesNotTellItsLengthPasses)
{
    EXPECT_EQ(come(0, start, GST_CLOCK_TIME_NONE), Fate::passes);
    sound.reset();
    EXPECT_EQ(come(0), Fate::isKept);
    EXPECT_EQ(come(0, start, GST_CLOCK_TIME_NONE), Fate::passes);
    EXPECT_EQ(passed(), "2 3 ");
}

TEST_F(FirstSoundTest, SoundThatIsAlwaysTooLatePassesAfterAWhile)
{
    EXPECT_EQ(come(-1, start), Fate::isDropped);
    EXPECT_EQ(come(-1, start + 499 * ms), Fate::isDropped);
    EXPECT_EQ(come(-1, start + 500 * ms), Fate::passes);
    EXPECT_EQ(come(-1, start + 501 * ms), Fate::passes);
}

TEST_F(FirstSoundTest, ANewModeBeginsAnew)
{
    come(-1, start);
    come(0, start);
    sound.reset();
    EXPECT_EQ(come(-1, start + 500 * ms), Fate::isDropped) << "not what is kept, and for as long again";
    come(230);
    sound.reset();
    EXPECT_EQ(come(-1), Fate::isDropped);
}

} // namespace
