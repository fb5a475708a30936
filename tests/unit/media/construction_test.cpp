// The head of the pipeline and the object before any mode.
#include "lifetimes.h"
#include "media/gstimpl.h"
#include "mediatest.h"
#include "support/thisprocess.h"

#include <QMetaMethod>

namespace {

using Construction = MediaTest;
using Names = std::vector<std::string>;

TEST_F(Construction, LogsItsTwoBanners)
{
    make();
    EXPECT_EQ(log.lines(),
        (Names{"------------------gstImpl Constr ------------------",
            "------------------gstImpl createPipeline ------------------"}));
}

TEST_F(Construction, BuildsSourceQueueAndTeeInThePlayerPipeline)
{
    make();
    ASSERT_NE(pipeline(), nullptr);
    EXPECT_STREQ(GST_OBJECT_NAME(pipeline()), "Gstreamer player");
    EXPECT_EQ(watch.added(), (Names{"my_bin", "queue1", "tee"}));
    EXPECT_EQ(factoryName(element("queue1")), "queue");
    EXPECT_EQ(factoryName(element("tee")), "tee");
    EXPECT_EQ(next("my_bin"), "queue1");
    EXPECT_EQ(next("queue1"), "tee");
    EXPECT_TRUE(teeBranches().empty());
}

TEST_F(Construction, BytesAreTheHeadQueuesOnlyLimit)
{
    make();
    EXPECT_EQ(propertyText(element("queue1"), "max-size-buffers"), "0");
    EXPECT_EQ(propertyText(element("queue1"), "max-size-bytes"), "20000000");
    EXPECT_EQ(propertyText(element("queue1"), "max-size-time"), "0");
}

TEST_F(Construction, StartsNothing)
{
    make();
    EXPECT_EQ(GST_STATE(pipeline()), GST_STATE_NULL);
    EXPECT_EQ(GST_STATE_PENDING(pipeline()), GST_STATE_VOID_PENDING);
    EXPECT_EQ(status(), "stopped");
    EXPECT_EQ(object().getVideoDecodedWidth(), -1);
    EXPECT_EQ(object().getVideoDecodedHeight(), -1);
    EXPECT_EQ(object().getVideoDecodedCaps(), nullptr);
    EXPECT_EQ(object().getAudioDecodedCaps(), nullptr);
}

TEST_F(Construction, ThePipelineKeepsTheObjectsOnlyReferences)
{
    make();
    for (const char* name : {"my_bin", "queue1", "tee"})
        EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(element(name)), 1) << name;
    EXPECT_EQ(GST_OBJECT_FLAG_IS_SET(element("my_bin"), GST_OBJECT_FLAG_MAY_BE_LEAKED), FALSE);
}

TEST_F(Construction, ANullSourceIsLoggedAndStartsNoThread)
{
    const QtObjects objects;
    const auto threadsBefore = threads();
    make(nullptr);
    EXPECT_LE(threads(), threadsBefore);
    EXPECT_EQ(objects.alive(), 1); // neither thread nor message handler
    EXPECT_EQ(log.lines(),
        (Names{"------------------gstImpl Constr ------------------",
            "------------------gstImpl createPipeline ------------------",
            "Failed to create gstreamer element."}));
    EXPECT_EQ(pipeline(), nullptr); // nothing was put into one
    EXPECT_EQ(status(), "stopped");
    destroy();
    EXPECT_EQ(log.lines().back(), "------------------gstImpl Destruct ------------------");
}

TEST_F(Construction, ANullSourceLeavesNoElementBehind)
{
    for (const char* factory : {"queue", "tee", "pipeline"}) {
        const EndedElements ended(factory);
        make(nullptr);
        destroy();
        EXPECT_EQ(ended.count(), 1) << factory;
    }
}

TEST_F(Construction, ASourceIsReleasedWhenTheHeadCanNotBeBuilt)
{
    GstPluginFeature* tee = gst_registry_lookup_feature(gst_registry_get(), "tee");
    gst_registry_remove_feature(gst_registry_get(), tee);
    GWeakRef source;
    g_weak_ref_init(&source, nullptr);
    GstElement* made = idleSource();
    g_weak_ref_set(&source, made);
    make(made);
    gst_registry_add_feature(gst_registry_get(), tee);
    EXPECT_EQ(log.lines().back(), "Failed to create gstreamer element.");
    EXPECT_EQ(g_weak_ref_get(&source), nullptr);
    g_weak_ref_clear(&source);
}

TEST_F(Construction, WithoutASourceStopAndQueriesDoNothing)
{
    gstImpl& impl = make(nullptr);
    impl.stop();
    EXPECT_TRUE(impl.getPAT()->empty());
    EXPECT_EQ(impl.getPMT(), nullptr);
    EXPECT_EQ(impl.getProgramNumber(0), 0);
    EXPECT_EQ(log.lines().size(), 3U);
}

TEST_F(Construction, TheMetaObjectDeclaresTheSlotsInOrderAndNoSignal)
{
    const QMetaObject& meta = gstImpl::staticMetaObject;
    Names slots;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        EXPECT_EQ(meta.method(i).methodType(), QMetaMethod::Slot);
        EXPECT_EQ(meta.method(i).access(), QMetaMethod::Public);
        slots.emplace_back(meta.method(i).methodSignature().constData());
    }
    EXPECT_EQ(slots,
        (Names{"newPatSectionReceived(GstMpegtsSection*)", "newSdtSectionReceived(GstMpegtsSection*)",
            "newNitSectionReceived(GstMpegtsSection*)", "newPmtSectionReceived(GstMpegtsSection*)",
            "restart()", "slotEndOfStream()"}));
}

TEST_F(Construction, StatusWithoutAPlaceToWriteDoesNothing)
{
    make().status(nullptr);
    std::string text = "what stood there before";
    object().status(&text);
    EXPECT_EQ(text, "stopped"); // replaced, not appended to
}

TEST_F(Construction, EndOfStreamMarksTheObjectStoppedAndNothingElse)
{
    make().scan();
    EXPECT_EQ(status(), "running");
    const Names before = elements();
    object().slotEndOfStream();
    EXPECT_EQ(status(), "stopped");
    EXPECT_EQ(elements(), before);
    gst_element_set_state(pipeline(), GST_STATE_NULL); // what the bus loop does next
}

} // namespace
