// The codes of the decoder information frame, by the caps of the decoded elementary streams.
#include "commands/decoderinfo.h"

#include "kit/gstreamer.h"

#include <gtest/gtest.h>
#include <memory>
#include <ostream>

namespace {

struct CapsCode
{
    const char* caps;
    unsigned code;
};

std::ostream& operator<<(std::ostream& out, const CapsCode& row)
{
    return out << row.caps;
}

/// The code of a caps text; 999 when GStreamer does not take the text.
unsigned codeOf(unsigned (*code)(const GstCaps*), const char* text)
{
    tessary::test::startGStreamer();
    GstCaps* caps = gst_caps_from_string(text);
    if (!caps)
        return 999;
    const unsigned result = code(caps);
    gst_caps_unref(caps);
    return result;
}

class VideoCode : public ::testing::TestWithParam<CapsCode>
{
};

TEST_P(VideoCode, FollowsTheCaps)
{
    EXPECT_EQ(codeOf(videoCode, GetParam().caps), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Codings, VideoCode,
    ::testing::Values(CapsCode{"video/mpeg, mpegversion=(int)4, systemstream=(boolean)false", 3},
        CapsCode{"video/mpeg, mpegversion=(int)2, systemstream=(boolean)false", 1},
        CapsCode{"video/mpeg, mpegversion=(int)1", 1}, CapsCode{"video/mpeg, mpegversion=(int)[1,4]", 3},
        CapsCode{"video/mpeg, mpegversion=(int){1,2}", 1}, CapsCode{"video/mpeg", 0},
        CapsCode{"video/mpegts, mpegversion=(int)2", 1}, CapsCode{"video/x-h265, width=1920", 15},
        CapsCode{"video/x-vp9", 14}, CapsCode{"video/x-vp8", 10}, CapsCode{"video/x-vp6", 8},
        CapsCode{"video/x-vp6-flash", 8}, CapsCode{"video/x-h264, stream-format=byte-stream", 2},
        CapsCode{"video/x-h266", 0}, CapsCode{"video/x-raw", 0}, CapsCode{"ANY", 0}, CapsCode{"EMPTY", 0},
        CapsCode{"video/x-h264; video/x-h265", 2}));

class AudioCode : public ::testing::TestWithParam<CapsCode>
{
};

TEST_P(AudioCode, FollowsTheCaps)
{
    EXPECT_EQ(codeOf(audioCode, GetParam().caps), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(Codings, AudioCode,
    ::testing::Values(CapsCode{"audio/mpeg, mpegversion=(int)4, stream-format=adts", 1},
        CapsCode{"audio/mpeg, mpegversion=(int)2, stream-format=adts", 1}, CapsCode{"audio/mpeg", 0},
        CapsCode{"audio/mpeg, layer=(int)2", 0}, CapsCode{"audio/mpeg, mpegversion=(int)1", 0},
        CapsCode{"audio/mpeg, mpegversion=(int)1, layer=(int)1", 3},
        CapsCode{"audio/mpeg, mpegversion=(int)1, layer=(int)2", 4},
        CapsCode{"audio/mpeg, mpegversion=(int)1, layer=(int)3", 5},
        CapsCode{"audio/mpeg, mpegversion=(int)1, layer=(int)[1,3]", 5},
        CapsCode{"audio/mpeg, mpegversion=(int)[1,4], layer=(int)2", 1},
        CapsCode{"audio/mpeg, mpegversion=(int)3", 0}, CapsCode{"audio/x-ac3, rate=48000", 2},
        CapsCode{"audio/x-eac3", 7}, CapsCode{"audio/x-ac4", 11}, CapsCode{"audio/x-opus", 0},
        CapsCode{"ANY", 0}, CapsCode{"EMPTY", 0}));

TEST(DecoderInfo, NoCapsAndNoVideoOrAudioGiveZero)
{
    tessary::test::startGStreamer();
    int misuses = 0; // the library would tell them in the daemon's log
    const GLogFunc earlier = g_log_set_default_handler(
        [](const gchar*, GLogLevelFlags, const gchar*, gpointer count) { ++*static_cast<int*>(count); },
        &misuses);
    EXPECT_EQ(videoCode(nullptr), 0u);
    EXPECT_EQ(audioCode(nullptr), 0u);
    GstTagList* notCaps = gst_tag_list_new_empty();
    EXPECT_EQ(videoCode(reinterpret_cast<const GstCaps*>(notCaps)), 0u);
    EXPECT_EQ(audioCode(reinterpret_cast<const GstCaps*>(notCaps)), 0u);
    gst_tag_list_unref(notCaps);
    g_log_set_default_handler(earlier, nullptr);
    EXPECT_EQ(misuses, 0);
}

TEST(DecoderInfo, AFieldThatHasNoTextFormCountsAsAbsent)
{
    tessary::test::startGStreamer();
    GstCaps* video = gst_caps_new_simple("video/mpeg", "mpegversion", G_TYPE_POINTER, nullptr, nullptr);
    EXPECT_EQ(videoCode(video), 0u);
    gst_caps_unref(video);
    GstCaps* audio = gst_caps_new_simple(
        "audio/mpeg", "mpegversion", G_TYPE_INT, 1, "layer", G_TYPE_POINTER, nullptr, nullptr);
    EXPECT_EQ(audioCode(audio), 0u);
    gst_caps_unref(audio);
}

} // namespace
