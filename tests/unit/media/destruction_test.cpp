// The end of the object: modes, tables, bus thread and pipeline, also when the bus thread is held up.
#include "kit/gstreamer.h"
#include "kit/sections.h"
#include "lifetimes.h"
#include "media/gstimpl.h"
#include "mediatest.h"

#include <chrono>
#include <QCoreApplication>

namespace {

using namespace tessary::test;

using Names = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

class Destruction : public MediaTest
{
protected:
    ~Destruction() override { g_weak_ref_clear(&m_pipeline); }

    /// Makes the object and notes its pipeline without keeping it.
    gstImpl& makeWatched()
    {
        gstImpl& impl = make();
        g_weak_ref_init(&m_pipeline, pipeline());
        return impl;
    }

    bool pipelineGone()
    {
        gpointer found = g_weak_ref_get(&m_pipeline);
        if (found)
            g_object_unref(found);
        return found == nullptr;
    }

    /// Seconds that deleting the object takes.
    double secondsToDestroy()
    {
        const Clock::time_point start = Clock::now();
        destroy();
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    /// Lets the main thread's events delete what they are to delete, the thread object for example, until
    /// nothing of Qt's is left; false when something stays.
    static bool allEnd(const QtObjects& objects)
    {
        return eventually([&objects] {
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            return objects.alive() == 0;
        });
    }

private:
    GWeakRef m_pipeline{};
};

TEST_F(Destruction, OfAnObjectThatNeverStartedEndsTheThreadWithoutStop)
{
    makeWatched();
    log.forget();
    const double seconds = secondsToDestroy();
    EXPECT_EQ(
        log.lines(), Names{"------------------gstImpl Destruct ------------------"}); // no "stop" banner
    EXPECT_TRUE(pipelineGone());
    EXPECT_LT(seconds, 4.0);
}

TEST_F(Destruction, WhileAModeIsActiveStopsItFirst)
{
    makeWatched().scan();
    log.forget();
    destroy();
    EXPECT_EQ(log.lines(),
        (Names{"------------------gstImpl stop ------------------",
            "------------------gstImpl Destruct ------------------"}));
    EXPECT_TRUE(pipelineGone());
}

TEST_F(Destruction, AfterTheEndOfAStreamReleasesTheBranchesThatStayed)
{
    makeWatched().scan();
    GWeakRef branch;
    g_weak_ref_init(&branch, element("tsparse"));
    gst_element_post_message(pipeline(), gst_message_new_eos(GST_OBJECT(pipeline())));
    ASSERT_TRUE(prints.waitFor("EOS\n"));
    ASSERT_TRUE(reaches(GST_STATE_NULL));
    log.forget();
    destroy();
    EXPECT_FALSE(log.contains("------------------gstImpl stop ------------------"));
    EXPECT_TRUE(pipelineGone());
    EXPECT_EQ(g_weak_ref_get(&branch), nullptr);
    g_weak_ref_clear(&branch);
}

/// Every print of a slot may be the one at which nobody reads standard output any more.
class HeldUpDestruction : public Destruction, public ::testing::WithParamInterface<const char*>
{
};

INSTANTIATE_TEST_SUITE_P(
    AtEachPrint, HeldUpDestruction, ::testing::Values("2 programs : \n", "new PAT received\n"));

TEST_P(HeldUpDestruction, WaitsFiveSecondsForTheBusThreadAndLeavesNothingBehind)
{
    const QtObjects objects;
    makeWatched();
    prints.holdAt(GetParam());
    postSection(pipeline(), makePat({1, 2}));
    ASSERT_TRUE(prints.waitUntilHeld());
    log.forget();
    const double seconds = secondsToDestroy();
    EXPECT_GE(seconds, 4.9);
    EXPECT_LT(seconds, 20.0);
    EXPECT_EQ(log.lines(), Names{"------------------gstImpl Destruct ------------------"});
    EXPECT_FALSE(pipelineGone()); // the held thread may yet touch it

    prints.release(); // the thread goes on, sees the request, and takes the rest along
    EXPECT_TRUE(allEnd(objects));
    EXPECT_TRUE(pipelineGone());
}

/// The bus thread runs deferred deletions when it already calls itself finished, and the handler's destructor
/// asks for one: an object that does not wait for the very end deletes the handler twice, once in some
/// thousand ends.
TEST_F(Destruction, ThousandsOfEndsDeleteNothingTwice)
{
#ifdef __SANITIZE_ADDRESS__
    constexpr int ends = 2500; // each is slow here, and looked at closely
#else
    constexpr int ends = 20000;
#endif
    for (int i = 0; i < ends; ++i) {
        make();
        destroy();
        log.forget();
    }
    EXPECT_EQ(pipeline(), nullptr);
}

/// Nothing happens on the bus of an idle pipeline: its loop is woken, instead of waiting out its second each
/// time.
TEST_F(Destruction, OfAQuietObjectDoesNotWaitForTheBusLoopsPoll)
{
    constexpr int objects = 20;
    double seconds = 0;
    for (int i = 0; i < objects; ++i) {
        makeWatched().scan();
        EXPECT_TRUE(reaches(GST_STATE_PLAYING));
        seconds += secondsToDestroy();
        EXPECT_TRUE(pipelineGone()) << i;
    }
    EXPECT_LT(seconds, 0.5 * objects); // half of what even one loop in two would take
}

TEST_F(Destruction, ManyObjectsInTurnLeaveNoPipelineAndNoThread)
{
    const QtObjects objects;
    for (int i = 0; i < 10; ++i) {
        makeWatched().play(i);
        destroy();
        EXPECT_TRUE(pipelineGone()) << i;
        EXPECT_EQ(objects.alive(), 0) << i;
    }
}

} // namespace
