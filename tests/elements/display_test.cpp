// The display and the video decoder.
#include "kit/samples.h"
#include "platform.h"

#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace {

std::string picturePath()
{
    return scratchFolder() + "/display.ppm";
}

std::string display()
{
    return "kmssink name=display picture-location=" + picturePath();
}

/// The report beside the picture, as text.
std::string report()
{
    const auto bytes = tessary::test::bytesOfFile(scratchFolder() + "/display.json");
    return {bytes.begin(), bytes.end()};
}

long reportedNumber(const std::string& field)
{
    const std::string text = report();
    const std::size_t at = text.find("\"" + field + "\":");
    return at == std::string::npos ? -1 : std::strtol(text.c_str() + at + field.size() + 3, nullptr, 10);
}

struct Picture
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;

    std::array<int, 3> centre() const
    {
        const std::size_t at = (static_cast<std::size_t>(height / 2) * static_cast<std::size_t>(width)
                                   + static_cast<std::size_t>(width / 2))
            * 3;
        return {pixels.at(at), pixels.at(at + 1), pixels.at(at + 2)};
    }
};

Picture readPicture()
{
    const auto bytes = tessary::test::bytesOfFile(picturePath());
    const std::string text(bytes.begin(), bytes.end());
    Picture picture;
    int headBytes = 0;
    EXPECT_EQ(std::sscanf(text.c_str(), "P6\n%d %d\n255%n", &picture.width, &picture.height, &headBytes), 2)
        << report();
    picture.pixels.assign(bytes.begin() + headBytes + 1, bytes.end());
    EXPECT_EQ(picture.pixels.size(), static_cast<std::size_t>(picture.width * picture.height * 3));
    return picture;
}

/// The parsers are passed over, as the instrument's player does; everything else is tried.
int skipParsers(GstElement*, GstPad*, GstCaps*, GstElementFactory* factory, gpointer)
{
    constexpr int tryIt = 0;
    constexpr int skipIt = 2;
    const char* name = gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(factory));
    return std::strstr(name, "h264parse") != nullptr || std::strstr(name, "h265parse") != nullptr ? skipIt
                                                                                                  : tryIt;
}

/// Links a decoded pad to the display's queue, each time the decoder makes one.
void linkToQueue(GstElement*, GstPad* pad, gpointer queue)
{
    GstPad* sink = gst_element_get_static_pad(GST_ELEMENT(queue), "sink");
    EXPECT_EQ(gst_pad_link(pad, sink), GST_PAD_LINK_OK);
    gst_object_unref(sink);
}

void expectThirtyPicturesOf(const std::string& sample, int width, int height)
{
    const auto path = tessary::test::samplePath(sample);
    if (!path.has_value())
        GTEST_SKIP() << tessary::test::missingSample(sample);
    loadPlugins({"typefindfunctions", "playback", "mpegtsdemux", "videoparsersbad", "libav"});
    Pipeline pipeline("filesrc location=" + *path + " ! queue ! decodebin name=decoder queue name=decoded ! "
        + display() + " sync=false");
    g_signal_connect(
        pipeline.element("decoder"), "pad-added", G_CALLBACK(linkToQueue), pipeline.element("decoded"));
    g_signal_connect(pipeline.element("decoder"), "autoplug-select", G_CALLBACK(skipParsers), nullptr);
    for (int round = 0; round < 2; ++round) { // the second start finds the decoder emptied
        EXPECT_EQ(pipeline.playToEnd(), "");
        EXPECT_EQ(reportedNumber("frames"), 30);
        const Picture picture = readPicture();
        EXPECT_EQ(picture.width, width);
        EXPECT_EQ(picture.height, height);
    }
}

} // namespace

TEST(KmsSink, IsOursAndHasTheDisplaysProperties)
{
    Pipeline pipeline(
        "videotestsrc num-buffers=1 ! " + display() + " max-lateness=200000000 display-ratio=0");
    GstElement* sink = pipeline.element("display");
    EXPECT_STREQ(
        gst_plugin_feature_get_plugin_name(GST_PLUGIN_FEATURE(gst_element_get_factory(sink))), "instrument");
    g_object_set(sink, "display-ratio", 3, nullptr);
    gint ratio = 0;
    gint64 maxLateness = 0;
    gboolean sync = FALSE;
    g_object_get(sink, "display-ratio", &ratio, "max-lateness", &maxLateness, "sync", &sync, nullptr);
    EXPECT_EQ(ratio, 3);
    EXPECT_EQ(maxLateness, 200000000);
    EXPECT_TRUE(sync);
}

class KmsSinkFormats : public testing::TestWithParam<const char*>
{
};

TEST_P(KmsSinkFormats, AreKeptAsTheColoursTheyMean)
{
    Pipeline pipeline(std::string("videotestsrc pattern=red num-buffers=2 ! video/x-raw,format=") + GetParam()
        + ",width=70,height=34 ! " + display() + " sync=false");
    ASSERT_EQ(pipeline.playToEnd(), "");
    const Picture picture = readPicture();
    EXPECT_EQ(picture.width, 70);
    EXPECT_EQ(picture.height, 34);
    const auto [red, green, blue] = picture.centre();
    EXPECT_GT(red, 230);
    EXPECT_LT(green, 25);
    EXPECT_LT(blue, 25);
}

// What the kernel's display planes take.
INSTANTIATE_TEST_SUITE_P(All, KmsSinkFormats,
    testing::Values("BGRA", "RGBA", "P016_LE", "P010_10LE", "NV24", "BGRx", "RGBx", "RGB", "BGR", "Y42B",
        "NV61", "NV16", "UYVY", "YVYU", "YUY2", "I420", "YV12", "NV21", "NV12", "RGB16", "BGR16"),
    [](const testing::TestParamInfo<const char*>& format) { return std::string(format.param); });

TEST(KmsSink, CountsEachPictureOnce)
{
    Pipeline pipeline("videotestsrc num-buffers=25 ! video/x-raw,framerate=50/1 ! " + display());
    ASSERT_EQ(pipeline.playToEnd(), "");
    EXPECT_EQ(reportedNumber("frames") + reportedNumber("dropped"), 25) << report();
    EXPECT_EQ(reportedNumber("width"), 320);
    EXPECT_EQ(reportedNumber("height"), 240);
    EXPECT_NE(report().find("\"state\":\"stopped\""), std::string::npos) << report();
}

// 25 pictures a second last half a second.
TEST(KmsSink, ShowsPicturesAtTheirTime)
{
    Pipeline pipeline("videotestsrc num-buffers=13 ! video/x-raw,framerate=25/1 ! " + display());
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(pipeline.playToEnd(), "");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(450));
}

// The second picture's time is 40 ms after the first's.
TEST(KmsSink, TellsWhenTheFirstPictureCameOnAndWhenItMoved)
{
    Pipeline pipeline("videotestsrc num-buffers=5 ! video/x-raw,framerate=25/1 ! " + display());
    const long before = g_get_monotonic_time() * 1000;
    pipeline.setState(GST_STATE_PAUSED);
    ASSERT_EQ(
        gst_element_get_state(pipeline.get(), nullptr, nullptr, 10 * GST_SECOND), GST_STATE_CHANGE_SUCCESS);
    const long shown = reportedNumber("first_picture_ns");
    EXPECT_GE(shown, before);
    EXPECT_EQ(reportedNumber("moving_ns"), 0) << report();
    const long resumed = g_get_monotonic_time() * 1000;
    EXPECT_LE(shown, resumed);
    ASSERT_EQ(pipeline.playToEnd(), "");
    EXPECT_EQ(reportedNumber("first_picture_ns"), shown) << "the first one only";
    EXPECT_GE(reportedNumber("moving_ns"), resumed + 35000000) << report();
    EXPECT_LE(reportedNumber("moving_ns"), g_get_monotonic_time() * 1000);
}

// Each picture takes 100 ms to come and lasts 40 ms: soon all are too late.
TEST(KmsSink, DropsAndCountsPicturesThatAreTooLate)
{
    Pipeline pipeline(
        "videotestsrc num-buffers=15 ! video/x-raw,framerate=25/1 ! identity sleep-time=100000 ! " + display()
        + " max-lateness=20000000 qos=false");
    ASSERT_EQ(pipeline.playToEnd(), "");
    EXPECT_GT(reportedNumber("dropped"), 5) << report();
    EXPECT_EQ(reportedNumber("frames") + reportedNumber("dropped"), 15) << report();
}

TEST(KmsSink, KeepsTheLastPictureAtTheStop)
{
    GstHarness* harness = gst_harness_new_parse((display() + " sync=false").c_str());
    gst_harness_set_src_caps_str(harness, "video/x-raw, format=RGB, width=4, height=2, framerate=25/1");
    for (int shade = 0; shade < 100; ++shade) {
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, 2 * 12, nullptr);
        gst_buffer_memset(buffer, 0, static_cast<guint8>(shade), 2 * 12);
        ASSERT_EQ(gst_harness_push(harness, buffer), GST_FLOW_OK);
    }
    gst_harness_teardown(harness);
    EXPECT_EQ(readPicture().centre(), (std::array<int, 3>{99, 99, 99}));
    EXPECT_EQ(reportedNumber("frames"), 100);
}

TEST(KmsSink, FollowsAChangeOfThePictureSize)
{
    GstHarness* harness = gst_harness_new_parse((display() + " sync=false").c_str());
    for (const int width : {4, 8}) {
        const std::string caps =
            "video/x-raw, format=RGB, height=2, framerate=25/1, width=" + std::to_string(width);
        gst_harness_set_src_caps_str(harness, caps.c_str());
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(
                gst_harness_push(harness, gst_harness_create_buffer(harness, static_cast<gsize>(width) * 6)),
                GST_FLOW_OK);
    }
    gst_harness_teardown(harness);
    EXPECT_EQ(readPicture().width, 8);
    EXPECT_EQ(reportedNumber("width"), 8);
}

TEST(KmsSink, PlaysOnWhenItsFilesCanNotBeWritten)
{
    Pipeline pipeline(
        "videotestsrc num-buffers=5 ! kmssink sync=false picture-location=/nonexistent/display.ppm");
    EXPECT_EQ(pipeline.playToEnd(), "");
}

TEST(VpuDec, IsRankedAboveSoftwareDecoders)
{
    GstElementFactory* factory = gst_element_factory_find("vpudec");
    ASSERT_NE(factory, nullptr);
    EXPECT_GT(gst_plugin_feature_get_rank(GST_PLUGIN_FEATURE(factory)), static_cast<guint>(GST_RANK_PRIMARY));
    EXPECT_STREQ(
        gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS), "Codec/Decoder/Video");
    gst_object_unref(factory);
}

TEST(VpuDec, DecodesH264AsTheDemultiplexerGivesIt)
{
    expectThirtyPicturesOf("h264.ts", 854, 480);
}

TEST(VpuDec, DecodesH265AsTheDemultiplexerGivesIt)
{
    expectThirtyPicturesOf("h265.ts", 854, 480);
}
