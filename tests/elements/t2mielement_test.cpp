#include "kit/packets.h"
#include "kit/samples.h"
#include "kit/t2mi.h"
#include "platform.h"

#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using namespace tessary;
using namespace tessary::test;

namespace {

struct HarnessDeleter
{
    void operator()(GstHarness* harness) const { gst_harness_teardown(harness); }
};
using Harness = std::unique_ptr<GstHarness, HarnessDeleter>;

Harness makeHarness()
{
    Harness harness(gst_harness_new("t2mi"));
    gst_harness_set_src_caps_str(harness.get(), "video/mpegts");
    g_object_set(harness->element, "pid", kPid, "plpid", kPlp, nullptr);
    return harness;
}

GstBuffer* makeBuffer(const Bytes& bytes, GstClockTime pts = GST_CLOCK_TIME_NONE)
{
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, bytes.size(), nullptr);
    gst_buffer_fill(buffer, 0, bytes.data(), bytes.size());
    GST_BUFFER_PTS(buffer) = pts;
    return buffer;
}

Bytes takeBytes(GstBuffer* buffer)
{
    Bytes bytes(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
    gst_buffer_unref(buffer);
    return bytes;
}

// Reads "frame" as the daemon does: into a value of the property's own type.
G_GNUC_BEGIN_IGNORE_DEPRECATIONS // GLib's old array type is what the property is made of
    Bytes
    readFrame(GstElement* element)
{
    GParamSpec* spec = g_object_class_find_property(G_OBJECT_GET_CLASS(element), "frame");
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_PARAM_SPEC_VALUE_TYPE(spec));
    g_object_get_property(G_OBJECT(element), "frame", &value);
    EXPECT_TRUE(G_VALUE_HOLDS(&value, g_value_array_get_type()));
    auto* array = static_cast<GValueArray*>(g_value_get_boxed(&value));
    Bytes bytes;
    for (guint i = 0; array != nullptr && i < array->n_values; ++i) {
        const GValue* byte = g_value_array_get_nth(array, i);
        EXPECT_TRUE(G_VALUE_HOLDS_UCHAR(byte));
        bytes.push_back(g_value_get_uchar(byte));
    }
    g_value_unset(&value);
    return bytes;
}
G_GNUC_END_IGNORE_DEPRECATIONS

std::vector<Bytes> somePackets(unsigned count)
{
    std::vector<Bytes> packets;
    for (unsigned i = 0; i < count; ++i)
        packets.push_back(userPacket(i));
    return packets;
}

} // namespace

TEST(T2MiElement, GivesTheInnerStreamWithTheTimeOfItsInput)
{
    const Harness harness = makeHarness();
    const auto packets = somePackets(3);
    const Bytes stream = join(tsPackets(t2miFrames(basebandFrames(packets, ModeOptions(), 1000))));
    ASSERT_EQ(gst_harness_push(harness.get(), makeBuffer(stream, 1234567)), GST_FLOW_OK);
    GstBuffer* buffer = gst_harness_try_pull(harness.get());
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(GST_BUFFER_PTS(buffer), 1234567U);
    EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT))
        << "the first buffer begins a stream";
    EXPECT_EQ(takeBytes(buffer), join(packets));
    GstCaps* caps = gst_pad_get_current_caps(harness->sinkpad);
    ASSERT_NE(caps, nullptr);
    GstCaps* expected = gst_caps_from_string("video/mpegts, systemstream=(boolean)true, packetsize=(int)188");
    EXPECT_TRUE(gst_caps_is_equal(caps, expected));
    gst_caps_unref(expected);
    gst_caps_unref(caps);
}

TEST(T2MiElement, FrameIsTheNewestT2MiPacket)
{
    const Harness harness = makeHarness();
    EXPECT_TRUE(readFrame(harness->element).empty());
    const auto frames = t2miFrames(basebandFrames(somePackets(40), ModeOptions(), 3000));
    ASSERT_EQ(gst_harness_push(harness.get(), makeBuffer(join(tsPackets(frames)))), GST_FLOW_OK);
    EXPECT_EQ(readFrame(harness->element), frames.back());
}

TEST(T2MiElement, FrameCanNotBeWritten)
{
    const Harness harness = makeHarness();
    GParamSpec* spec = g_object_class_find_property(G_OBJECT_GET_CLASS(harness->element), "frame");
    ASSERT_NE(spec, nullptr);
    EXPECT_EQ(spec->flags & G_PARAM_WRITABLE, 0U);
}

TEST(T2MiElement, TakesNumbersThatMatchNothing)
{
    const Harness harness = makeHarness();
    g_object_set(harness->element, "pid", 100000, "plpid", -1, nullptr);
    gint pid = 0;
    gint plpId = 0;
    g_object_get(harness->element, "pid", &pid, "plpid", &plpId, nullptr);
    EXPECT_EQ(pid, 100000);
    EXPECT_EQ(plpId, -1);
    const Bytes stream = join(tsPackets(t2miFrames(basebandFrames(somePackets(3), ModeOptions(), 1000))));
    EXPECT_EQ(gst_harness_push(harness.get(), makeBuffer(stream)), GST_FLOW_OK);
    EXPECT_EQ(gst_harness_try_pull(harness.get()), nullptr);
}

TEST(T2MiElement, FollowsAChangeOfThePlp)
{
    const Harness harness = makeHarness();
    const auto packets = somePackets(3);
    const Bytes stream = join(tsPackets(t2miFrames(basebandFrames(packets, ModeOptions(), 1000), kPlp + 1)));
    gst_harness_push(harness.get(), makeBuffer(stream));
    EXPECT_EQ(gst_harness_try_pull(harness.get()), nullptr);
    g_object_set(harness->element, "plpid", kPlp + 1, nullptr);
    gst_harness_push(harness.get(), makeBuffer(stream));
    GstBuffer* buffer = gst_harness_try_pull(harness.get());
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(takeBytes(buffer), join(packets));
}

TEST(T2MiElement, IsNotSeekableAndKnowsNoLengthInBytes)
{
    const Harness harness = makeHarness();
    gst_harness_push(harness.get(), makeBuffer(Bytes(188, 0)));
    GstPad* pad = gst_element_get_static_pad(harness->element, "src");
    GstQuery* query = gst_query_new_seeking(GST_FORMAT_BYTES);
    gboolean seekable = TRUE;
    ASSERT_TRUE(gst_pad_query(pad, query));
    gst_query_parse_seeking(query, nullptr, &seekable, nullptr, nullptr);
    EXPECT_FALSE(seekable);
    gst_query_unref(query);
    gint64 duration = 0;
    EXPECT_FALSE(gst_pad_query_duration(pad, GST_FORMAT_BYTES, &duration));
    gst_object_unref(pad);
}

TEST(T2MiElement, ExtractsTheRecordedStreamAgainOnASecondStart)
{
    const Bytes reference = bytesOfSample("t2mi-plp102.inner.ts");
    if (reference.empty())
        GTEST_SKIP() << missingSample("t2mi-plp102.inner.ts");
    Pipeline pipeline("filesrc blocksize=1316 location=" + samplePath("t2mi-plp102.ts").value()
        + " ! t2mi pid=64 plpid=102 ! fakesink name=out");
    for (int round = 0; round < 2; ++round) {
        const Collector collector(pipeline);
        EXPECT_EQ(pipeline.playToEnd(), "");
        const Bytes inner = collector.bytes();
        ASSERT_EQ(inner.size(), 8826U * 188);
        EXPECT_TRUE(std::equal(reference.rbegin(), reference.rend(), inner.rbegin()));
    }
}
