// The play branch as it is built, reused and removed. The source never delivers, so nothing is decoded here.
#include "media/gstimpl.h"
#include "mediatest.h"

namespace {

using Names = std::vector<std::string>;

class Play : public MediaTest
{
protected:
    /// The banner with the program number; the logger puts one space between its items.
    static std::string banner(int number)
    {
        return "------------------gstImpl play prog number= " + std::to_string(number)
            + " ------------------";
    }

    /// True once the object is freed; a message about it that the bus thread has in hand may keep it for a
    /// moment.
    static bool goes(GWeakRef& ref)
    {
        return eventually([&ref] {
            gpointer object = g_weak_ref_get(&ref);
            g_clear_object(&object);
            return !object;
        });
    }

    Names playElements() const
    {
        return {"alsasink1", "audioconvert1", "decodebin1", "kmssink1", "my_bin", "queue1", "queueAudio",
            "queueVideo", "tee"};
    }
};

TEST_F(Play, LogsTheProgramNumberOnOneLine)
{
    make();
    log.forget();
    object().play(3401);
    EXPECT_EQ(log.lines(), Names{banner(3401)});
}

TEST_F(Play, BuildsTheBranchFromTheNamedFactories)
{
    make().play(1);
    EXPECT_EQ(watch.added(),
        (Names{"my_bin", "queue1", "tee", "decodebin1", "queueVideo", "kmssink1", "queueAudio",
            "audioconvert1", "alsasink1"}));
    EXPECT_EQ(factoryName(element("decodebin1")), "decodebin");
    EXPECT_EQ(factoryName(element("queueVideo")), "queue");
    EXPECT_EQ(factoryName(element("kmssink1")), "kmssink");
    EXPECT_EQ(factoryName(element("queueAudio")), "queue");
    EXPECT_EQ(factoryName(element("audioconvert1")), "audioconvert");
    EXPECT_EQ(factoryName(element("alsasink1")), "alsasink");
}

TEST_F(Play, SetsTheBranchesProperties)
{
    make().play(1);
    EXPECT_EQ(propertyText(element("decodebin1"), "max-size-buffers"), "0");
    EXPECT_EQ(propertyText(element("decodebin1"), "max-size-bytes"), "100000000");
    EXPECT_EQ(propertyText(element("decodebin1"), "max-size-time"), "0");
    EXPECT_EQ(propertyText(element("kmssink1"), "max-lateness"), "200000000");
    EXPECT_EQ(propertyText(element("kmssink1"), "display-ratio"), "0");
    EXPECT_EQ(propertyText(element("queueAudio"), "max-size-time"), "100000000000");
    EXPECT_EQ(propertyText(element("queueAudio"), "max-size-buffers"), "1000");
}

TEST_F(Play, LeavesTheQueuesOtherLimitsAtTheirDefaults)
{
    make().play(1);
    GstElement* fresh = gst_element_factory_make("queue", nullptr);
    for (const char* limit : {"max-size-buffers", "max-size-bytes", "max-size-time"})
        EXPECT_EQ(propertyText(element("queueVideo"), limit), propertyText(fresh, limit)) << limit;
    EXPECT_EQ(propertyText(element("queueAudio"), "max-size-bytes"), propertyText(fresh, "max-size-bytes"));
    gst_object_unref(fresh);
}

TEST_F(Play, LinksTeeToDecoderAndQueuesToSinks)
{
    make().play(1);
    EXPECT_EQ(teeBranches(), Names{"decodebin1"});
    EXPECT_EQ(next("queueVideo"), "kmssink1");
    EXPECT_EQ(next("queueAudio"), "audioconvert1");
    EXPECT_EQ(next("audioconvert1"), "alsasink1");
}

TEST_F(Play, RunsAndGoesForPlaying)
{
    make().play(1);
    EXPECT_EQ(status(), "running");
    EXPECT_EQ(GST_STATE_TARGET(pipeline()), GST_STATE_PLAYING);
    EXPECT_EQ(object().getVideoDecodedWidth(), -1); // before any video pad is linked
    EXPECT_EQ(object().getVideoDecodedHeight(), -1);
    EXPECT_EQ(object().getVideoDecodedCaps(), nullptr);
    EXPECT_EQ(object().getAudioDecodedCaps(), nullptr);
}

TEST_F(Play, ASecondPlayReusesTheBranch)
{
    make().play(1);
    GstElement* decoder = element("decodebin1");
    const Names added = watch.added();
    g_object_set(element("queueVideo"), "max-size-buffers", 77u, nullptr); // would be lost by a rebuild
    log.forget();
    object().play(2);
    EXPECT_EQ(log.lines(), Names{banner(2)});
    EXPECT_EQ(element("decodebin1"), decoder);
    EXPECT_EQ(watch.added(), added);
    EXPECT_EQ(elements(), playElements());
    EXPECT_EQ(propertyText(element("queueVideo"), "max-size-buffers"), "77");
    EXPECT_EQ(teeBranches(), Names{"decodebin1"});
}

TEST_F(Play, StopRemovesTheBranchAndKeepsTheHead)
{
    make().play(1);
    log.forget();
    object().stop();
    EXPECT_EQ(log.lines(), Names{"------------------gstImpl stop ------------------"});
    EXPECT_EQ(elements(), (Names{"my_bin", "queue1", "tee"}));
    EXPECT_EQ(GST_STATE(pipeline()), GST_STATE_NULL);
    EXPECT_EQ(status(), "stopped");
    EXPECT_EQ(next("my_bin"), "queue1");
    EXPECT_EQ(next("queue1"), "tee");
}

TEST_F(Play, StopFreesEveryElementOfTheBranch)
{
    make().play(1);
    const char* const names[] = {
        "decodebin1", "queueVideo", "kmssink1", "queueAudio", "audioconvert1", "alsasink1"};
    GWeakRef refs[6];
    for (int i = 0; i < 6; ++i)
        g_weak_ref_init(&refs[i], element(names[i]));
    object().stop();
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(goes(refs[i])) << names[i];
        g_weak_ref_clear(&refs[i]);
    }
}

TEST_F(Play, ASecondStopDoesNothing)
{
    make().play(1);
    object().stop();
    log.forget();
    object().stop();
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(Play, StopBeforeAnyModeDoesNothing)
{
    make();
    log.forget();
    object().stop();
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(Play, AfterStopTheBranchIsBuiltAnew)
{
    make().play(1);
    object().stop();
    object().play(2);
    EXPECT_EQ(elements(), playElements());
    EXPECT_EQ(watch.added().size(), 3U + 6 + 6);
    EXPECT_EQ(teeBranches(), Names{"decodebin1"});
}

TEST_F(Play, RestartPlaysTheLastProgramAgain)
{
    make().play(17);
    GstElement* decoder = element("decodebin1");
    log.forget();
    object().restart();
    EXPECT_EQ(log.lines(), (Names{"------------------gstImpl restart ------------------", banner(17)}));
    EXPECT_EQ(element("decodebin1"), decoder);
    EXPECT_EQ(status(), "running");
}

TEST_F(Play, RestartBeforeAnyPlayPlaysProgramZero)
{
    make();
    log.forget();
    object().restart();
    EXPECT_EQ(log.lines(), (Names{"------------------gstImpl restart ------------------", banner(0)}));
}

TEST_F(Play, AfterTheEndOfTheStreamTheBranchStaysAndIsReused)
{
    make().play(1);
    GstElement* decoder = element("decodebin1");
    gst_element_post_message(pipeline(), gst_message_new_eos(GST_OBJECT(pipeline())));
    ASSERT_TRUE(prints.waitFor("EOS\n"));
    ASSERT_TRUE(reaches(GST_STATE_NULL));
    EXPECT_EQ(status(), "stopped");
    EXPECT_EQ(elements(), playElements());
    object().play(2);
    EXPECT_EQ(status(), "running");
    EXPECT_EQ(element("decodebin1"), decoder);
    // A stop while the object counts as stopped does nothing: the branch of an ended stream goes with the
    // next stop.
    object().slotEndOfStream();
    object().stop();
    EXPECT_EQ(elements(), playElements());
    gst_element_set_state(pipeline(), GST_STATE_NULL);
}

TEST_F(Play, TheDecodeBranchTakesTheTeesFirstPadBeforeTheOtherBranches)
{
    ScratchFolder folder;
    make().sendStream();
    object().record(folder.file("record.ts"));
    object().scan();
    EXPECT_EQ(teeBranches(), (Names{"queuePciesink", "queueRecord", "queueTsParse"}));
    object().play(1);
    EXPECT_EQ(teeBranches(), (Names{"decodebin1", "queueTsParse", "queueRecord", "queuePciesink"}));
    EXPECT_EQ(next("queueTsParse"), "tsparse");
    EXPECT_EQ(next("tsparse"), "fakesink");
    EXPECT_EQ(next("queueRecord"), "filesink1");
    EXPECT_EQ(next("queuePciesink"), "pciesink1");
}

TEST_F(Play, StopRemovesTheBranchesOfAllModes)
{
    ScratchFolder folder;
    make().play(1);
    object().scan();
    object().record(folder.file("record.ts"));
    object().sendStream();
    EXPECT_EQ(elements().size(), 3U + 6 + 3 + 2 + 2);
    object().stop();
    EXPECT_EQ(elements(), (Names{"my_bin", "queue1", "tee"}));
}

} // namespace
