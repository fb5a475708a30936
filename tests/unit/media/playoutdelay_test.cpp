// What a live pipeline holds back, as its demultiplexer's data come: on real elements and a clock that
// stands.
#include "media/gstimpl.h"
#include "media/playoutdelay.h"
#include "mediatest.h"

#include <chrono>
#include <future>

namespace {

constexpr GstClockTime now = 10 * GST_SECOND; // running time
constexpr GstClockTime ms = GST_MSECOND;
constexpr gint elementsLatencyMs = 700;
constexpr int patience = 8;

/// A clock that always shows the same.
GstClock* standingClock()
{
    auto* clock = GST_CLOCK(g_object_new(GST_TYPE_SYSTEM_CLOCK, nullptr));
    gst_clock_set_calibration(clock, 0, now, 0, 1);
    return clock;
}

gboolean answerAsLive(GstPad*, GstObject*, GstQuery* query)
{
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
        return FALSE;
    gst_query_set_latency(query, TRUE, 0, GST_CLOCK_TIME_NONE);
    return TRUE;
}

gboolean answerAsFile(GstPad*, GstObject*, GstQuery* query)
{
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
        return FALSE;
    gst_query_set_latency(query, FALSE, 0, GST_CLOCK_TIME_NONE);
    return TRUE;
}

/// A pad that gives data by hand; goes with the object unless an element took it.
class HandFedPad
{
public:
    explicit HandFedPad(const char* name)
        : m_pad(GST_PAD(gst_object_ref_sink(gst_pad_new(name, GST_PAD_SRC))))
    {
        gst_pad_set_active(m_pad, TRUE);
    }
    ~HandFedPad() { gst_object_unref(m_pad); }
    HandFedPad(const HandFedPad&) = delete;
    HandFedPad& operator=(const HandFedPad&) = delete;

    GstPad* get() const { return m_pad; }

    void begin(const char* capsText)
    {
        gst_pad_push_event(m_pad, gst_event_new_stream_start("made"));
        GstCaps* caps = gst_caps_from_string(capsText);
        gst_pad_push_event(m_pad, gst_event_new_caps(caps));
        gst_caps_unref(caps);
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        gst_pad_push_event(m_pad, gst_event_new_segment(&segment));
    }

    /// Data whose time is so much after now, or before; as many bytes as they last milliseconds.
    void give(gint64 leadMs, gsize lengthMs = 24)
    {
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, lengthMs, nullptr);
        GST_BUFFER_PTS(buffer) = now + static_cast<GstClockTime>(leadMs) * ms;
        GST_BUFFER_DURATION(buffer) = lengthMs * ms;
        gst_pad_push(m_pad, buffer);
    }

    void giveWithoutTime() { gst_pad_push(m_pad, gst_buffer_new()); }

private:
    GstPad* m_pad; // owned
};

class PlayoutDelayOf : public testing::Test
{
protected:
    PlayoutDelayOf()
        : m_clock(standingClock())
        , m_pipeline(gst_pipeline_new(nullptr))
        , m_demultiplexer(gst_element_factory_make("tsdemux", nullptr))
        , m_input("input")
    {
        gst_bin_add(GST_BIN(m_pipeline), m_demultiplexer);
        gst_pad_set_query_function(m_input.get(), answerAsLive);
        link(m_input, m_demultiplexer);
        gst_element_set_clock(m_pipeline, m_clock);
        delay.reset(m_pipeline);
        delay.watch(m_demultiplexer);
    }

    ~PlayoutDelayOf() override
    {
        gst_element_set_state(m_pipeline, GST_STATE_NULL);
        gst_object_unref(m_pipeline);
        gst_object_unref(m_clock);
    }

    static void link(const HandFedPad& pad, GstElement* element)
    {
        GstPad* sink = gst_element_get_static_pad(element, "sink");
        gst_pad_link_full(pad.get(), sink, GST_PAD_LINK_CHECK_NOTHING);
        gst_object_unref(sink);
    }

    /// The demultiplexer finds a stream.
    void find(HandFedPad& stream, const char* capsText)
    {
        stream.begin(capsText);
        gst_element_add_pad(m_demultiplexer, stream.get());
    }

    void makeFile() { gst_pad_set_query_function(m_input.get(), answerAsFile); }

    void play()
    {
        gst_element_set_state(m_pipeline, GST_STATE_PLAYING);
        ASSERT_EQ(gst_element_get_state(m_pipeline, nullptr, nullptr, GST_SECOND), GST_STATE_CHANGE_SUCCESS);
        gst_element_set_clock(m_pipeline, m_clock);
        gst_element_set_base_time(m_pipeline, 0);
    }

    /// -1: as long as the elements ask for.
    gint64 heldMs() const
    {
        const GstClockTime latency = gst_pipeline_get_latency(GST_PIPELINE(m_pipeline));
        return GST_CLOCK_TIME_IS_VALID(latency) ? static_cast<gint64>(latency / ms) : -1;
    }

    gint demultiplexerAsksFor() const
    {
        gint latency = -1;
        g_object_get(m_demultiplexer, "latency", &latency, nullptr);
        return latency;
    }

    GstElement* pipeline() const { return m_pipeline; }

    PlayoutDelay delay;

private:
    GstClock* m_clock; // owned
    GstElement* m_pipeline; // owned
    GstElement* m_demultiplexer;
    HandFedPad m_input;
};

TEST_F(PlayoutDelayOf, ALiveStreamIsWhatItsSoundAndPictureNeed)
{
    HandFedPad sound("sound");
    HandFedPad picture("picture");
    find(sound, "audio/mpeg");
    find(picture, "video/mpeg");
    EXPECT_EQ(heldMs(), -1);
    EXPECT_EQ(demultiplexerAsksFor(), elementsLatencyMs);
    sound.give(100);
    EXPECT_EQ(heldMs(), 180);
    EXPECT_EQ(demultiplexerAsksFor(), 0);
    picture.give(-50);
    EXPECT_EQ(heldMs(), 200);
}

TEST_F(PlayoutDelayOf, APictureIsNeededWhenItIsDecoded)
{
    HandFedPad picture("picture");
    find(picture, "video/x-h264");
    GstBuffer* buffer = gst_buffer_new();
    GST_BUFFER_PTS(buffer) = now + 200 * ms;
    GST_BUFFER_DTS(buffer) = now + 40 * ms;
    gst_pad_push(picture.get(), buffer);
    EXPECT_EQ(heldMs(), 110);
}

TEST_F(PlayoutDelayOf, ARecordingIsLeftAlone)
{
    makeFile();
    HandFedPad sound("sound");
    find(sound, "audio/mpeg");
    sound.give(100);
    EXPECT_EQ(heldMs(), -1);
    EXPECT_EQ(demultiplexerAsksFor(), elementsLatencyMs);
}

TEST_F(PlayoutDelayOf, AStreamWithoutTimeStampsIsLeftAlone)
{
    HandFedPad sound("sound");
    find(sound, "audio/mpeg");
    sound.giveWithoutTime();
    EXPECT_EQ(heldMs(), -1);
}

TEST_F(PlayoutDelayOf, SubtitlesDoNotCount)
{
    HandFedPad text("text");
    find(text, "subpicture/x-dvb");
    text.give(-2000);
    HandFedPad sound("sound");
    find(sound, "audio/mpeg");
    sound.give(100);
    EXPECT_EQ(heldMs(), 180);
}

/// The pipeline tells its sinks what is held back.
gboolean countTelling(GstBin*, gpointer count)
{
    ++*static_cast<int*>(count);
    return TRUE;
}

TEST_F(PlayoutDelayOf, AStreamThatComesTooLateWhilePlayingIsWhatTheElementsAskFor)
{
    HandFedPad sound("sound");
    find(sound, "audio/mpeg");
    sound.give(100);
    play();
    for (int i = 1; i < patience; ++i)
        sound.give(0);
    EXPECT_EQ(heldMs(), 180);
    int told = 0;
    g_signal_connect(pipeline(), "do-latency", G_CALLBACK(countTelling), &told);
    sound.give(0);
    EXPECT_EQ(heldMs(), -1);
    EXPECT_EQ(demultiplexerAsksFor(), elementsLatencyMs);
    EXPECT_EQ(told, 1) << "the sinks do not ask";
}

TEST_F(PlayoutDelayOf, ANewModeBeginsAnew)
{
    HandFedPad sound("sound");
    find(sound, "audio/mpeg");
    sound.give(-2000);
    delay.reset(pipeline());
    EXPECT_EQ(heldMs(), -1);
    sound.give(100);
    EXPECT_EQ(heldMs(), 180);
    delay.reset(pipeline());
    EXPECT_EQ(heldMs(), -1);
}

TEST_F(PlayoutDelayOf, DataDoNotWaitForWhoChangesThePipelinesState)
{
    HandFedPad sound("sound");
    find(sound, "audio/mpeg");
    GST_STATE_LOCK(pipeline()); // as gst_element_set_state() does, which in a stop waits for who gives data
    std::future<void> given = std::async(std::launch::async, [&sound] { sound.give(100); });
    EXPECT_EQ(given.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    GST_STATE_UNLOCK(pipeline());
    given.wait();
    EXPECT_EQ(heldMs(), -1);
    sound.give(100);
    EXPECT_EQ(heldMs(), 180) << "the next data tell it";
}

class SoundOf : public PlayoutDelayOf
{
protected:
    SoundOf()
        : m_sink(GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("fakesink", nullptr))))
    {
        g_object_set(m_sink, "sync", FALSE, "async", FALSE, "signal-handoffs", TRUE, nullptr);
        g_signal_connect(m_sink, "handoff", G_CALLBACK(note), &m_came);
        link(m_decoded, m_sink);
        gst_element_set_state(m_sink, GST_STATE_PLAYING);
        m_decoded.begin("audio/x-raw");
        delay.beginSound(m_sink);
    }

    ~SoundOf() override
    {
        gst_element_set_state(m_sink, GST_STATE_NULL);
        gst_object_unref(m_sink);
    }

    /// 100 ms of sound, so much ahead of its time, come out of the decoder. Returns how much comes to the
    /// sink, in bytes of a millisecond each.
    std::size_t decode(gint64 leadMs)
    {
        m_came = 0;
        m_decoded.give(leadMs, 100);
        return m_came;
    }

    /// 180 ms are held back.
    void knowTheStream()
    {
        find(m_encoded, "audio/mpeg");
        knowTheStreamAgain();
    }
    void knowTheStreamAgain() { m_encoded.give(100); }

private:
    static void note(GstElement*, GstBuffer* buffer, GstPad*, std::size_t* came)
    {
        *came += gst_buffer_get_size(buffer);
    }

    GstElement* m_sink; // owned
    std::size_t m_came = 0;
    HandFedPad m_decoded{"decoded"};
    HandFedPad m_encoded{"encoded"};
};

TEST_F(SoundOf, ALiveStreamBeginsInOnePieceBehindWhatIsTooLate)
{
    knowTheStream();
    EXPECT_EQ(decode(-181), 0U);
    EXPECT_EQ(decode(-180), 0U);
    EXPECT_EQ(decode(-80), 0U);
    EXPECT_EQ(decode(20), 300U);
    EXPECT_EQ(decode(-181), 100U) << "the beginning is over";
}

TEST_F(SoundOf, APipelineThatPlaysIsLeftToItsSink)
{
    knowTheStream();
    play();
    EXPECT_EQ(decode(-181), 100U);
}

TEST_F(SoundOf, AStreamOfWhichNothingIsKnownIsLeftToItsSink)
{
    EXPECT_EQ(decode(-181), 100U);
}

TEST_F(SoundOf, ANewModeBeginsAnew)
{
    knowTheStream();
    decode(-180);
    delay.reset(pipeline());
    EXPECT_EQ(decode(-181), 100U);
    knowTheStreamAgain();
    EXPECT_EQ(decode(-181), 0U);
    EXPECT_EQ(decode(-180), 0U) << "and what was kept then is gone";
}

/// The player with a clock that stands, and a demultiplexer as decodebin adds one.
class PlayerDelay : public MediaTest
{
protected:
    PlayerDelay()
    {
        make().play(1);
        GstClock* clock = standingClock();
        gst_element_set_clock(pipeline(), clock);
        gst_object_unref(clock);
        gst_element_set_base_time(pipeline(), 0);
        m_demultiplexer = gst_element_factory_make("tsdemux", "tsdemux7");
        gst_bin_add(GST_BIN(element("decodebin1")), m_demultiplexer);
        gst_pad_set_query_function(m_input.get(), answerAsLive);
        GstPad* sink = gst_element_get_static_pad(m_demultiplexer, "sink");
        gst_pad_link_full(m_input.get(), sink, GST_PAD_LINK_CHECK_NOTHING);
        gst_object_unref(sink);
    }

    /// Sound is found that comes 100 ms ahead of its time: 180 ms are held back.
    void findSound()
    {
        m_sound.begin("audio/mpeg");
        gst_element_add_pad(m_demultiplexer, m_sound.get());
        m_sound.give(100);
    }

    GstClockTime latency() const { return gst_pipeline_get_latency(GST_PIPELINE(pipeline())); }

private:
    GstElement* m_demultiplexer;
    HandFedPad m_input{"input"};
    HandFedPad m_sound{"sound"};
};

TEST_F(PlayerDelay, FollowsTheDemultiplexerAndEndsWithTheMode)
{
    EXPECT_EQ(latency(), GST_CLOCK_TIME_NONE);
    findSound();
    EXPECT_EQ(latency(), 180 * ms);
    object().scan();
    EXPECT_EQ(latency(), GST_CLOCK_TIME_NONE);
}

/// Counts what passes, and lets nothing farther.
GstPadProbeReturn countAndDrop(GstPad*, GstPadProbeInfo*, gpointer count)
{
    ++*static_cast<int*>(count);
    return GST_PAD_PROBE_DROP;
}

TEST_F(PlayerDelay, DropsWhatComesTooLateToTheSoundsSink)
{
    findSound();
    GstPad* sink = gst_element_get_static_pad(element("alsasink1"), "sink");
    int came = 0;
    gst_pad_add_probe(sink, GST_PAD_PROBE_TYPE_BUFFER, countAndDrop, &came, nullptr);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_send_event(sink, gst_event_new_stream_start("made"));
    gst_pad_send_event(sink, gst_event_new_segment(&segment));
    for (const gint64 lead : {-181, 100}) {
        GstBuffer* buffer = gst_buffer_new();
        GST_BUFFER_PTS(buffer) = now + static_cast<GstClockTime>(lead) * ms;
        gst_pad_chain(sink, buffer);
    }
    gst_object_unref(sink);
    EXPECT_EQ(came, 1);
}

} // namespace
