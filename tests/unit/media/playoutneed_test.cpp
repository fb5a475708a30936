// How long a live stream has to be held back, from how far its data come ahead of their time stamps.
#include "media/playoutneed.h"

#include <gtest/gtest.h>

namespace {

// Sound needs 230 ms of way and pictures 100 ms, and both 50 ms for the network, less what they are ahead by.
// So sound that is 60 ms ahead is held back 220 ms, pictures that are 100 ms behind 250 ms, both 500 ms ahead
// not at all, and sound that is 700 ms behind as long as the elements ask for.

using Media = PlayoutNeed::Media;
constexpr std::int64_t ms = 1000000;
constexpr bool waiting = false;
constexpr bool playing = true;
constexpr int patience = 8;
constexpr int behindFor = 25;

class PlayoutNeedOf : public testing::Test
{
protected:
    bool note(Media media, std::int64_t leadMs, bool isPlaying = waiting)
    {
        return m_need.note(media, leadMs * ms, isPlaying);
    }
    /// -1: as long as the elements ask for.
    std::int64_t heldMs() const { return m_need.held() ? *m_need.held() / ms : -1; }

private:
    PlayoutNeed m_need;
};

TEST_F(PlayoutNeedOf, AnUnknownStreamIsWhatTheElementsAskFor)
{
    EXPECT_EQ(heldMs(), -1);
}

TEST_F(PlayoutNeedOf, AStreamIsItsWayLessWhatItIsAheadBy)
{
    EXPECT_TRUE(note(Media::sound, 60));
    EXPECT_EQ(heldMs(), 220);
    EXPECT_FALSE(note(Media::sound, 60)) << "nothing new";
    EXPECT_FALSE(note(Media::picture, 500)) << "nor anything that needs more";
    EXPECT_EQ(heldMs(), 220);
}

TEST_F(PlayoutNeedOf, SeveralMediaIsThatOfTheNeediest)
{
    note(Media::sound, 60);
    EXPECT_TRUE(note(Media::picture, -100));
    EXPECT_EQ(heldMs(), 250);
    EXPECT_TRUE(note(Media::sound, 20));
    EXPECT_EQ(heldMs(), 260);
}

TEST_F(PlayoutNeedOf, AStreamFarAheadIsNothing)
{
    EXPECT_TRUE(note(Media::sound, 500));
    EXPECT_EQ(heldMs(), 0);
    EXPECT_FALSE(note(Media::picture, 500));
    EXPECT_EQ(heldMs(), 0);
}

TEST_F(PlayoutNeedOf, AStreamFarBehindIsWhatTheElementsAskForForGood)
{
    EXPECT_FALSE(note(Media::sound, -700)) << "it was that before";
    EXPECT_FALSE(note(Media::sound, 500));
    EXPECT_EQ(heldMs(), -1);
}

TEST_F(PlayoutNeedOf, AStreamThatTurnsOutToBeBehindIsWhatTheElementsAskFor)
{
    note(Media::sound, 60);
    EXPECT_TRUE(note(Media::picture, -800));
    EXPECT_EQ(heldMs(), -1);
    EXPECT_FALSE(note(Media::sound, 60));
    EXPECT_EQ(heldMs(), -1);
}

TEST_F(PlayoutNeedOf, APlayingStreamDoesNotChangeWithinWhatIsHeldForTheNetwork)
{
    note(Media::sound, 60);
    for (int i = 0; i < 3 * patience; ++i)
        EXPECT_FALSE(note(Media::sound, 10, playing));
    EXPECT_FALSE(note(Media::sound, 500, playing)) << "nor when less would do";
    EXPECT_EQ(heldMs(), 220);
}

TEST_F(PlayoutNeedOf, APlayingStreamThatStaysTooLateIsWhatTheElementsAskFor)
{
    note(Media::sound, 60);
    for (int i = 1; i < patience; ++i)
        EXPECT_FALSE(note(Media::sound, 9, playing)) << i;
    EXPECT_TRUE(note(Media::sound, 9, playing));
    EXPECT_EQ(heldMs(), -1);
    EXPECT_FALSE(note(Media::sound, 9, playing)) << "once";
}

TEST_F(PlayoutNeedOf, APlayingStreamThatIsLateNowAndThenStays)
{
    note(Media::sound, 60);
    for (int round = 0; round < 3; ++round) {
        for (int i = 1; i < patience; ++i)
            EXPECT_FALSE(note(Media::sound, 0, playing));
        EXPECT_FALSE(note(Media::picture, 0, playing)) << "the other one's being in time does not help";
        EXPECT_FALSE(note(Media::sound, 10, playing));
    }
    EXPECT_EQ(heldMs(), 220);
}

// The display takes pictures that are 200 ms late.
TEST_F(PlayoutNeedOf, APlayingStreamsPicturesMayBeLater)
{
    note(Media::picture, 60);
    EXPECT_EQ(heldMs(), 90);
    for (int i = 0; i < 3 * patience; ++i)
        EXPECT_FALSE(note(Media::picture, -190, playing));
    for (int i = 1; i < patience; ++i)
        EXPECT_FALSE(note(Media::picture, -191, playing));
    EXPECT_TRUE(note(Media::picture, -191, playing));
    EXPECT_EQ(heldMs(), -1);
}

// A service whose first sound comes when it plays already.
TEST_F(PlayoutNeedOf, APlayingStreamThatWasNotKnownIsNotTouched)
{
    for (int i = 0; i < 3 * patience; ++i)
        EXPECT_FALSE(note(Media::sound, 500, playing));
    EXPECT_EQ(heldMs(), -1);
}

// Chosen five seconds before it came on the air: 5 s behind, and the way, and what the network may add.
TEST_F(PlayoutNeedOf, AStreamThatBeganLateIsAsLongAsItIsBehind)
{
    note(Media::picture, -5000);
    for (int i = 1; i < behindFor; ++i)
        EXPECT_FALSE(note(Media::picture, -5000, playing)) << i;
    EXPECT_TRUE(note(Media::picture, -5010, playing));
    EXPECT_EQ(heldMs(), 5160);
    for (int i = 0; i < 3 * behindFor; ++i)
        EXPECT_FALSE(note(Media::picture, -5010, playing)) << "in time now";
}

TEST_F(PlayoutNeedOf, AStreamThatComesBackLateIsLongerThanBefore)
{
    note(Media::picture, -5000);
    for (int i = 0; i < behindFor; ++i)
        note(Media::picture, -5000, playing);
    for (int i = 1; i < behindFor; ++i)
        EXPECT_FALSE(note(Media::picture, -9000, playing)) << i;
    EXPECT_TRUE(note(Media::picture, -9000, playing));
    EXPECT_EQ(heldMs(), 9150);
}

TEST_F(PlayoutNeedOf, AStreamThatCatchesUpStaysWhatTheElementsAskFor)
{
    note(Media::picture, -5000);
    for (int behind = 5000; behind > -500; behind -= 40)
        EXPECT_FALSE(note(Media::picture, -behind, playing)) << behind;
    EXPECT_EQ(heldMs(), -1);
}

// Sound with time stamps that have nothing to do with the program's clock must not stop the pictures.
TEST_F(PlayoutNeedOf, AStreamOfWhichOneKindIsInTimeStaysWhatTheElementsAskFor)
{
    note(Media::sound, -60000);
    for (int i = 0; i < 3 * behindFor; ++i) {
        EXPECT_FALSE(note(Media::sound, -60000, playing));
        EXPECT_FALSE(note(Media::picture, 100, playing));
    }
    EXPECT_EQ(heldMs(), -1);
}

TEST_F(PlayoutNeedOf, AStreamOfWhichBothKindsAreBehindIsThatOfTheNeediest)
{
    note(Media::sound, -5000);
    bool changed = false;
    for (int i = 0; i < behindFor; ++i) {
        EXPECT_FALSE(changed);
        note(Media::sound, -5000, playing);
        changed = note(Media::picture, -5300, playing);
    }
    EXPECT_TRUE(changed);
    EXPECT_EQ(heldMs(), 5450);
}

} // namespace
