// The decoder's callbacks, reached through the signals of the live element.
#include "media/gstimpl.h"
#include "mediatest.h"

#include <functional>

namespace {

constexpr int autoplugTry = 0;
constexpr int autoplugSkip = 2;

class Autoplug : public MediaTest
{
protected:
    Autoplug() { make().play(program); }

    ~Autoplug() override
    {
        for (GstPad* pad : m_pads)
            gst_object_unref(pad);
    }

    GstElement* decoder() const { return element("decodebin1"); }

    int select(const char* factoryName)
    {
        GstElementFactory* factory = gst_element_factory_find(factoryName);
        EXPECT_NE(factory, nullptr) << factoryName;
        GstCaps* caps = gst_caps_new_empty_simple("video/x-h264");
        int answer = -1;
        g_signal_emit_by_name(decoder(), "autoplug-select", newPad("any"), caps, factory, &answer);
        gst_caps_unref(caps);
        gst_object_unref(factory);
        return answer;
    }

    /// The answer to "shall decoding of this pad go on?".
    bool goesOn(GstPad* pad, const char* capsText) { return announceStream(decoder(), pad, capsText); }

    GstPad* newPad(const char* name)
    {
        m_pads.push_back(GST_PAD(gst_object_ref_sink(gst_pad_new(name, GST_PAD_SRC))));
        return m_pads.back();
    }

    /// Adds a pad with these caps to the decoder, as it does with a decoded stream; null leaves it without
    /// caps.
    void expose(const char* name, const char* capsText)
    {
        GstCaps* caps = capsText ? gst_caps_from_string(capsText) : nullptr;
        exposeStream(decoder(), name, caps);
        if (caps)
            gst_caps_unref(caps);
    }

    /// Name of the decoder's pad that the queue is linked to; empty when it is not linked.
    std::string padBefore(const char* queue) const
    {
        GstPad* sink = gst_element_get_static_pad(element(queue), "sink");
        GstPad* peer = gst_pad_get_peer(sink);
        gst_object_unref(sink);
        if (!peer)
            return {};
        std::string name = GST_OBJECT_NAME(peer);
        gst_object_unref(peer);
        return name;
    }

    static std::string text(const GstCaps* caps)
    {
        if (!caps)
            return "null";
        gchar* written = gst_caps_to_string(caps);
        std::string result = written;
        g_free(written);
        return result;
    }

    /// `released` counts it when the last reference to the caps goes.
    void countRelease(GstCaps* caps)
    {
        gst_mini_object_weak_ref(
            GST_MINI_OBJECT(caps), [](gpointer count, GstMiniObject*) { ++*static_cast<int*>(count); },
            &released);
    }

    int released = 0;

    /// A demultiplexer as decodebin adds one.
    int programOfNewDemuxer(const char* factory, const char* name)
    {
        GstElement* demuxer = gst_element_factory_make(factory, name);
        gst_bin_add(GST_BIN(decoder()), demuxer);
        return programOf(name);
    }

    int programOf(const char* name) const
    {
        int number = -2;
        g_object_get(element(name), "program-number", &number, nullptr);
        return number;
    }

    /// What decodebin says when it has shown all it has.
    void sayThatWasAll() { g_signal_emit_by_name(decoder(), "no-more-pads"); }

    /// The element is in the pipeline, in NULL, and passed by in state changes.
    bool isAside(const char* name) const
    {
        return gst_element_is_locked_state(element(name)) != FALSE
            && GST_STATE(element(name)) == GST_STATE_NULL;
    }

    bool countsAsSink(const char* name) const
    {
        return GST_OBJECT_FLAG_IS_SET(element(name), GST_ELEMENT_FLAG_SINK) != FALSE;
    }

    bool follows(const char* name) const
    {
        return gst_element_is_locked_state(element(name)) == FALSE
            && GST_STATE(element(name)) != GST_STATE_NULL;
    }

    bool isAsItWasMade(const char* name) const
    {
        return gst_element_is_locked_state(element(name)) == FALSE
            && GST_STATE(element(name)) == GST_STATE_NULL;
    }

    static constexpr int program = 3401;

private:
    std::vector<GstPad*> m_pads;
};

TEST_F(Autoplug, SkipsThePlatformsDemultiplexerAndTheTwoParsers)
{
    EXPECT_EQ(select("aiurdemux"), autoplugSkip);
    EXPECT_EQ(select("h264parse"), autoplugSkip);
    EXPECT_EQ(select("h265parse"), autoplugSkip);
    EXPECT_EQ(
        prints.text(), "Factory-select: aiurdemux\nFactory-select: h264parse\nFactory-select: h265parse\n");
}

TEST_F(Autoplug, TriesEveryOtherElement)
{
    for (const char* name : {"tsdemux", "mpegvideoparse", "aacparse", "multiqueue", "kmssink"}) {
        prints.forget();
        EXPECT_EQ(select(name), autoplugTry) << name;
        EXPECT_EQ(prints.text(), std::string("Factory-select: ") + name + "\n");
    }
}

TEST_F(Autoplug, ADemultiplexerIsToldTheProgramNumber)
{
    EXPECT_EQ(programOfNewDemuxer("tsdemux", "tsdemux0"), program);
    EXPECT_EQ(prints.text(), "DECODBIN element-added: tsdemux0\r\n");
}

TEST_F(Autoplug, AnElementOfAnotherNameIsNotTold)
{
    EXPECT_EQ(programOfNewDemuxer("tsdemux", "demuxer0"), -1); // the property's default
}

TEST_F(Autoplug, ADemultiplexerWithoutTheNumberPropertyIsLeftAlone)
{
    gst_bin_add(GST_BIN(decoder()), gst_element_factory_make("aiurdemux", "aiurdemux0"));
    gst_bin_add(GST_BIN(decoder()), gst_element_factory_make("multiqueue", "multiqueue0"));
    EXPECT_EQ(prints.text(), "DECODBIN element-added: aiurdemux0\r\nDECODBIN element-added: multiqueue0\r\n");
}

TEST_F(Autoplug, ASecondPlayGivesItsNumberToDemultiplexersAddedFromThenOn)
{
    programOfNewDemuxer("tsdemux", "tsdemux0");
    object().play(3402);
    EXPECT_EQ(programOf("tsdemux0"), program); // the one that exists is not touched
    EXPECT_EQ(programOfNewDemuxer("tsdemux", "tsdemux1"), 3402);
}

TEST_F(Autoplug, ANewStreamIsPrintedWithPadAndCaps)
{
    GstPad* pad = newPad("video_0_0200");
    GstCaps* caps = gst_caps_from_string("video/x-h264, width=(int)720");
    gboolean answer = FALSE;
    g_signal_emit_by_name(decoder(), "autoplug-continue", pad, caps, &answer);
    const std::string expected = "DECODEBIN new stream: pad name=video_0_0200 (address="
        + std::to_string(GPOINTER_TO_INT(pad)) + "); caps string=video/x-h264, width=(int)720 (address="
        + std::to_string(GPOINTER_TO_INT(caps)) + ")\n";
    gst_caps_unref(caps);
    EXPECT_EQ(prints.text(), expected);
    EXPECT_NE(answer, FALSE);
}

TEST_F(Autoplug, ContainersAndDecodedStreamsGoOnWithoutBeingNoted)
{
    for (const char* caps : {"video/mpegts", "video/x-matroska", "video/x-raw", "audio/x-raw"})
        EXPECT_TRUE(goesOn(newPad("src"), caps)) << caps;
    EXPECT_EQ(object().getVideoDecodedCaps(), nullptr);
    EXPECT_EQ(object().getAudioDecodedCaps(), nullptr);
}

TEST_F(Autoplug, TheFirstVideoStreamIsTheOneReported)
{
    GstPad* first = newPad("video_0_0200");
    EXPECT_TRUE(goesOn(first, "video/x-h264, width=(int)720"));
    EXPECT_TRUE(goesOn(newPad("video_0_0201"), "video/x-h265"));
    EXPECT_EQ(text(object().getVideoDecodedCaps()), "video/x-h264, width=(int)720");
    EXPECT_TRUE(goesOn(first, "video/x-h264, width=(int)1280")); // the same pad again: its newest caps
    EXPECT_EQ(text(object().getVideoDecodedCaps()), "video/x-h264, width=(int)1280");
    EXPECT_EQ(object().getAudioDecodedCaps(), nullptr);
}

TEST_F(Autoplug, TheFirstAudioStreamIsTheOneReported)
{
    GstPad* first = newPad("audio_0_0300");
    EXPECT_TRUE(goesOn(first, "audio/mpeg, mpegversion=(int)4"));
    EXPECT_TRUE(goesOn(newPad("audio_0_0301"), "audio/x-ac3"));
    EXPECT_EQ(text(object().getAudioDecodedCaps()), "audio/mpeg, mpegversion=(int)4");
    EXPECT_TRUE(goesOn(first, "audio/mpeg, mpegversion=(int)2"));
    EXPECT_EQ(text(object().getAudioDecodedCaps()), "audio/mpeg, mpegversion=(int)2");
    EXPECT_EQ(object().getVideoDecodedCaps(), nullptr);
}

TEST_F(Autoplug, Ac4IsNotDecodedAndNotReported)
{
    EXPECT_FALSE(goesOn(newPad("audio_0_076c"), "audio/x-ac4"));
    EXPECT_EQ(object().getAudioDecodedCaps(), nullptr);
    EXPECT_TRUE(goesOn(newPad("audio_0_0300"), "audio/x-eac3")); // the next one is the first
    EXPECT_EQ(text(object().getAudioDecodedCaps()), "audio/x-eac3");
}

TEST_F(Autoplug, WhatIsNeitherPictureNorSoundEndsThere)
{
    for (const char* caps :
        {"subpicture/x-dvb", "application/x-teletext", "private/teletext", "EMPTY", "ANY"})
        EXPECT_FALSE(goesOn(newPad("src"), caps)) << caps;
}

TEST_F(Autoplug, TheNextModeForgetsTheReportedStreams)
{
    goesOn(newPad("video_0_0200"), "video/x-h264");
    goesOn(newPad("audio_0_0300"), "audio/mpeg");
    expose("src_0", "video/x-raw, width=(int)720, height=(int)576");
    ASSERT_EQ(object().getVideoDecodedWidth(), 720);
    object().scan();
    EXPECT_EQ(object().getVideoDecodedCaps(), nullptr);
    EXPECT_EQ(object().getAudioDecodedCaps(), nullptr);
    EXPECT_EQ(object().getVideoDecodedWidth(), -1);
    EXPECT_EQ(object().getVideoDecodedHeight(), -1);
}

TEST_F(Autoplug, WhatWasReportedIsReleasedByTheNextModeAndByTheEnd)
{
    goesOn(newPad("video_0_0200"), "video/x-h264");
    goesOn(newPad("audio_0_0300"), "audio/mpeg");
    countRelease(object().getVideoDecodedCaps());
    countRelease(object().getAudioDecodedCaps());
    object().play(program);
    EXPECT_EQ(released, 2);
    goesOn(newPad("video_0_0201"), "video/x-h265");
    countRelease(object().getVideoDecodedCaps());
    destroy();
    EXPECT_EQ(released, 3);
}

TEST_F(Autoplug, StopKeepsWhatWasReported)
{
    goesOn(newPad("video_0_0200"), "video/x-h264");
    expose("src_0", "video/x-raw, width=(int)720, height=(int)576");
    object().stop();
    EXPECT_EQ(object().getVideoDecodedWidth(), 720);
    EXPECT_EQ(text(object().getVideoDecodedCaps()), "video/x-h264");
}

TEST_F(Autoplug, APicturePadIsLinkedToTheVideoQueue)
{
    expose("src_0", "video/x-raw, width=(int)720, height=(int)576");
    EXPECT_EQ(padBefore("queueVideo"), "src_0");
    EXPECT_EQ(padBefore("queueAudio"), "");
    EXPECT_EQ(object().getVideoDecodedWidth(), 720);
    EXPECT_EQ(object().getVideoDecodedHeight(), 576);
    EXPECT_EQ(prints.text(),
        "A new pad src_0 was created for decodebin1\n"
        "Link video src_0 of Decodebin with caps : video/x-raw, width=(int)720, height=(int)576\n");
}

TEST_F(Autoplug, ASoundPadIsLinkedToTheAudioQueue)
{
    expose("src_0",
        "audio/x-raw, format=(string)S16LE, layout=(string)interleaved, rate=(int)48000, channels=(int)2");
    EXPECT_EQ(padBefore("queueAudio"), "src_0");
    EXPECT_EQ(padBefore("queueVideo"), "");
    EXPECT_EQ(object().getVideoDecodedWidth(), -1);
    EXPECT_EQ(prints.text(),
        "A new pad src_0 was created for decodebin1\n"
        "Link audio src_0 of Decodebin with caps : audio/x-raw, format=(string)S16LE, "
        "layout=(string)interleaved, "
        "rate=(int)48000, channels=(int)2\n");
}

TEST_F(Autoplug, FurtherPicturesAndSoundsAreIgnored)
{
    expose("src_0", "video/x-raw, width=(int)720, height=(int)576");
    expose("src_1",
        "audio/x-raw, format=(string)S16LE, layout=(string)interleaved, rate=(int)48000, channels=(int)2");
    prints.forget();
    expose("src_2", "video/x-raw, width=(int)1920, height=(int)1080");
    expose("src_3",
        "audio/x-raw, format=(string)S16LE, layout=(string)interleaved, rate=(int)44100, channels=(int)2");
    EXPECT_EQ(prints.text(),
        "A new pad src_2 was created for decodebin1\nA new pad src_3 was created for decodebin1\n");
    EXPECT_EQ(padBefore("queueVideo"), "src_0");
    EXPECT_EQ(padBefore("queueAudio"), "src_1");
    EXPECT_EQ(object().getVideoDecodedWidth(), 720);
}

TEST_F(Autoplug, APictureWithoutSizeLeavesItUnknown)
{
    expose("src_0", "video/x-raw, height=(int)480");
    EXPECT_EQ(object().getVideoDecodedWidth(), -1);
    EXPECT_EQ(object().getVideoDecodedHeight(), 480);
}

TEST_F(Autoplug, CapsOfAPadAreReleasedWithIt)
{
    for (const char* text : {"video/x-raw, width=(int)720", "audio/x-raw", "application/x-teletext"}) {
        GstCaps* caps = gst_caps_from_string(text);
        exposeStream(decoder(), "src_0", caps);
        object().stop(); // the decoder goes, and its pads
        EXPECT_EQ(GST_CAPS_REFCOUNT_VALUE(caps), 1) << text;
        gst_caps_unref(caps);
        object().play(program);
    }
}

TEST_F(Autoplug, APadWithoutCapsIsIgnored)
{
    expose("src_0", nullptr);
    EXPECT_EQ(prints.text(), "A new pad src_0 was created for decodebin1\n");
    EXPECT_EQ(padBefore("queueVideo"), "");
    EXPECT_EQ(padBefore("queueAudio"), "");
}

TEST_F(Autoplug, AServiceWithoutPictureLeavesTheVideoChainAside)
{
    expose("sound", "audio/x-raw");
    sayThatWasAll();
    EXPECT_TRUE(isAside("queueVideo"));
    EXPECT_TRUE(isAside("kmssink1"));
    EXPECT_FALSE(countsAsSink("kmssink1"));
    for (const char* name : {"queueAudio", "audioconvert1", "alsasink1"})
        EXPECT_TRUE(follows(name)) << name;
    EXPECT_TRUE(countsAsSink("alsasink1"));
}

TEST_F(Autoplug, AServiceWithoutSoundLeavesTheAudioChainAside)
{
    expose("picture", "video/x-raw");
    sayThatWasAll();
    for (const char* name : {"queueAudio", "audioconvert1", "alsasink1"})
        EXPECT_TRUE(isAside(name)) << name;
    EXPECT_FALSE(countsAsSink("alsasink1"));
    EXPECT_TRUE(follows("queueVideo"));
    EXPECT_TRUE(follows("kmssink1"));
}

TEST_F(Autoplug, SoundThatIsNotDecodedLeavesTheAudioChainAsideAlthoughItHasAPad)
{
    expose("picture", "video/x-raw");
    expose("sound", "audio/x-ac4");
    sayThatWasAll();
    EXPECT_EQ(padBefore("queueAudio"), "");
    EXPECT_TRUE(isAside("alsasink1"));
    EXPECT_TRUE(follows("kmssink1"));
}

TEST_F(Autoplug, APadThatComesAfterAllBringsItsChainBack)
{
    expose("sound", "audio/x-raw");
    sayThatWasAll();
    ASSERT_TRUE(isAside("kmssink1"));
    expose("picture", "video/x-raw");
    EXPECT_EQ(padBefore("queueVideo"), "picture");
    EXPECT_TRUE(follows("queueVideo"));
    EXPECT_TRUE(follows("kmssink1"));
    EXPECT_TRUE(countsAsSink("kmssink1"));
    sayThatWasAll();
    EXPECT_TRUE(follows("kmssink1"));
}

TEST_F(Autoplug, EveryModeBeginsWithBothChains)
{
    const std::vector<std::function<void()>> modes{[this] { object().play(program); },
        [this] { object().scan(); }, [this] { object().sendStream(); },
        [this] { object().record("/dev/null"); }};
    for (const std::function<void()>& begin : modes) {
        sayThatWasAll();
        ASSERT_TRUE(isAside("kmssink1"));
        ASSERT_TRUE(isAside("alsasink1"));
        begin();
        for (const char* name : {"queueVideo", "kmssink1", "queueAudio", "audioconvert1", "alsasink1"})
            EXPECT_TRUE(follows(name)) << name;
        EXPECT_TRUE(countsAsSink("kmssink1"));
        EXPECT_TRUE(countsAsSink("alsasink1"));
    }
}

TEST_F(Autoplug, StopRemovesAChainThatIsAside)
{
    GstElement* sink = GST_ELEMENT(gst_object_ref(element("kmssink1")));
    sayThatWasAll();
    object().stop();
    EXPECT_EQ(elements(), (std::vector<std::string>{"my_bin", "queue1", "tee"}));
    EXPECT_EQ(GST_STATE(sink), GST_STATE_NULL);
    EXPECT_FALSE(gst_element_is_locked_state(sink));
    // A message of its change of state, which the bus thread is just at, holds one for a moment.
    EXPECT_TRUE(eventually([sink] { return GST_OBJECT_REFCOUNT_VALUE(sink) == 1; }));
    gst_object_unref(sink);
    object().play(program); // anew
    EXPECT_TRUE(follows("kmssink1"));
}

TEST_F(Autoplug, AChainThatWasOnItsWayBackWhenTheModeEndedEndsAllTheSame)
{
    sayThatWasAll();
    GstElement* sink = GST_ELEMENT(gst_object_ref(element("kmssink1")));
    gst_element_set_state(sink, GST_STATE_READY); // as far as a pad that came late had brought it
    object().stop();
    EXPECT_EQ(GST_STATE(sink), GST_STATE_NULL);
    gst_object_unref(sink);
}

TEST_F(Autoplug, TheEndOfTheObjectWhileAChainIsAsideLeavesNothing)
{
    GWeakRef sink;
    g_weak_ref_init(&sink, element("kmssink1"));
    sayThatWasAll();
    gst_element_post_message(
        pipeline(), gst_message_new_eos(GST_OBJECT(pipeline()))); // so that nothing stops it first
    ASSERT_TRUE(prints.waitFor("EOS\n"));
    ASSERT_TRUE(reaches(GST_STATE_NULL));
    EXPECT_TRUE(isAside("kmssink1"));
    destroy();
    EXPECT_EQ(g_weak_ref_get(&sink), nullptr);
    g_weak_ref_clear(&sink);
}

} // namespace
