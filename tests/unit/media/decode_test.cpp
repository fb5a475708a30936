// Real streams played to their end: what is decoded, linked and reported.
#include "sourcetest.h"

#include "kit/oracle.h"
#include "media/filesource.h"

namespace {

class Decode : public SourceTest
{
protected:
    /// Plays a recorded stream from a file; the test is skipped where it is absent.
    void play(const std::string& sample, int program)
    {
        const auto path = tessary::test::samplePath(sample);
        if (!path)
            GTEST_SKIP() << tessary::test::missingSample(sample);
        hold(new filesource(*path));
        source().play(program);
    }

    bool linked(const char* queue) const
    {
        GstPad* sink = gst_element_get_static_pad(element(queue), "sink");
        const bool isLinked = gst_pad_is_linked(sink) != FALSE;
        gst_object_unref(sink);
        return isLinked;
    }

    static std::string mediaType(const GstCaps* caps)
    {
        return caps ? gst_structure_get_name(gst_caps_get_structure(caps, 0)) : "null";
    }

    /// The size is stored behind the print of the link, on a streaming thread.
    bool widthBecomes(int pixels)
    {
        return eventually([&] { return source().getVideoDecodedWidth() == pixels; });
    }

    std::string statusText()
    {
        std::string text;
        source().status(&text);
        return text;
    }
};

TEST_F(Decode, AProgramIsDecodedAndReported)
{
    play("h262_mpeg_audio.ts", 1);
    if (IsSkipped())
        return;
    ASSERT_TRUE(prints.waitFor("EOS\n"));
    ASSERT_TRUE(reaches(GST_STATE_NULL));
    EXPECT_EQ(statusText(), "stopped");
    EXPECT_EQ(source().getVideoDecodedWidth(), 640);
    EXPECT_EQ(source().getVideoDecodedHeight(), 426);
    EXPECT_EQ(mediaType(source().getVideoDecodedCaps()),
        "video/mpeg"); // the elementary stream, not the raw picture
    EXPECT_EQ(mediaType(source().getAudioDecodedCaps()), "audio/mpeg");
    EXPECT_EQ(prints.count("DECODBIN element-added: tsdemux"), 1);
    EXPECT_EQ(prints.count("DECODBIN element-added: multiqueue"), 1);
    EXPECT_EQ(prints.count("Link video "), 1);
    EXPECT_EQ(prints.count("Link audio "), 1);
    EXPECT_EQ(prints.count("Factory-select: tsdemux\n"), 1);
}

TEST_F(Decode, PlayingAgainAfterTheEndDecodesTheSameStreamAfresh)
{
    play("h262_mpeg_audio.ts", 1);
    if (IsSkipped())
        return;
    ASSERT_TRUE(prints.waitFor("EOS\n"));
    ASSERT_TRUE(reaches(GST_STATE_NULL));
    source().play(1);
    ASSERT_TRUE(prints.waitFor("EOS\n", 2));
    ASSERT_TRUE(reaches(GST_STATE_NULL));
    EXPECT_EQ(source().getVideoDecodedWidth(), 640);
    EXPECT_EQ(prints.count("Link video "), 2);
    EXPECT_EQ(prints.count("Link audio "), 2);
}

TEST_F(Decode, PlayingFillsTheTablesToo)
{
    play("h262_mpeg_audio.ts", 1);
    if (IsSkipped())
        return;
    ASSERT_TRUE(prints.waitFor("EOS\n"));
    EXPECT_EQ(source().getTotalNumberOfProgramsFound(), 1);
    EXPECT_NE(source().getPMT(), nullptr);
}

TEST_F(Decode, AnAc4StreamLeavesTheAudioChainUnlinked)
{
    play("ac4.ts", 1);
    if (IsSkipped())
        return;
    ASSERT_TRUE(prints.waitFor("caps string=audio/x-ac4"));
    ASSERT_TRUE(prints.waitFor("was created for decodebin1\n")); // exposed as it is, undecoded
    ASSERT_TRUE(prints.waitFor("Link audio ")); // tried, and refused by the chain
    EXPECT_FALSE(linked("queueAudio"));
    EXPECT_EQ(source().getAudioDecodedCaps(), nullptr);
}

TEST_F(Decode, TheH264ParserIsRefused)
{
    play("h264.ts", 1);
    if (IsSkipped())
        return;
    ASSERT_TRUE(prints.waitFor("Factory-select: h264parse\n"));
    ASSERT_TRUE(prints.waitFor("caps string=video/x-h264"));
    EXPECT_EQ(prints.count("DECODBIN element-added: h264parse"), 0);
    EXPECT_EQ(mediaType(source().getVideoDecodedCaps()), "video/x-h264");
}

TEST_F(Decode, OnlyTheChosenProgramsStreamsAreTaken)
{
    const std::string oneSound =
        "caps string=audio/mpeg, mpegversion=(int)1 ("; // as the demultiplexer gives it
    play("rai-dvbt-mux.ts", 3402); // a picture and three sounds
    if (IsSkipped())
        return;
    ASSERT_TRUE(prints.waitFor("Link video "));
    EXPECT_EQ(prints.count(oneSound), 3);
    EXPECT_TRUE(widthBecomes(720)) << source().getVideoDecodedWidth();
    source().stop();
    prints.forget();
    source().play(3403); // a picture and two sounds
    ASSERT_TRUE(prints.waitFor("Link video "));
    EXPECT_EQ(prints.count(oneSound), 2);
    source().stop();
    prints.forget();
    source().play(3405); // radio
    ASSERT_TRUE(prints.waitFor("Link audio "));
    EXPECT_EQ(prints.count(oneSound), 1);
    EXPECT_EQ(prints.count("caps string=video/mpeg, "), 0);
    EXPECT_EQ(source().getVideoDecodedWidth(), -1);
}

TEST_F(Decode, AskingWhileAStreamIsDecodedIsSafe)
{
    play("h262_mpeg_audio.ts", 1);
    if (IsSkipped())
        return;
    for (int i = 0; i < 1000 && prints.count("EOS\n") == 0; ++i) {
        const int width = source().getVideoDecodedWidth();
        EXPECT_TRUE(width == -1 || width == 640) << width;
        const int height = source().getVideoDecodedHeight();
        EXPECT_TRUE(height == -1 || height == 426) << height;
        const std::string video = mediaType(source().getVideoDecodedCaps());
        EXPECT_TRUE(video == "null" || video == "video/mpeg") << video;
        const std::string audio = mediaType(source().getAudioDecodedCaps());
        EXPECT_TRUE(audio == "null" || audio == "audio/mpeg") << audio;
        EXPECT_FALSE(statusText().empty());
        g_usleep(1000);
    }
    EXPECT_EQ(mediaType(source().getAudioDecodedCaps()), "audio/mpeg");
}

TEST_F(Decode, StoppingInTheMiddleOfAStreamEndsCleanly)
{
    play("rai-dvbt-mux.ts", 3401);
    if (IsSkipped())
        return;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(prints.waitFor("DECODBIN element-added: tsdemux", i + 1));
        source().stop();
        EXPECT_EQ(statusText(), "stopped");
        source().play(3401);
        EXPECT_EQ(statusText(), "running");
    }
}

TEST_F(Decode, ServicesOfAllKindsPlayToTheirEndInTurn)
{
    constexpr int radio = 3405;
    constexpr int television = 3401;
    play("rai-dvbt-mux.ts", radio);
    if (IsSkipped())
        return;
    int end = 0;
    for (const int program : {radio, television, radio, radio, television}) {
        if (end > 0)
            source().play(program);
        ASSERT_TRUE(prints.waitFor("EOS\n", ++end, 60000)) << "program " << program;
        ASSERT_TRUE(reaches(GST_STATE_NULL));
        EXPECT_EQ(statusText(), "stopped");
    }
}

TEST_F(Decode, ARadioServiceSounds)
{
    play("eac3.ts", 1);
    if (IsSkipped())
        return;
    ASSERT_TRUE(prints.waitFor("Link audio "));
    ASSERT_TRUE(prints.waitFor("EOS\n")); // all of it was heard: the sound's end is the stream's
    EXPECT_EQ(source().getVideoDecodedWidth(), -1);
}

} // namespace
