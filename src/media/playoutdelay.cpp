#include "media/playoutdelay.h"

#include "media/owned.h"

#include <cstring>

namespace {

bool isLive(GstElement* demultiplexer)
{
    const Owned<GstQuery> query(gst_query_new_latency());
    const Owned<GstPad> sink(gst_element_get_static_pad(demultiplexer, "sink"));
    gboolean live = FALSE;
    if (sink && gst_pad_peer_query(sink.get(), query.get()))
        gst_query_parse_latency(query.get(), &live, nullptr, nullptr);
    return live != FALSE;
}

bool startsWith(const GstCaps* caps, const char* prefix)
{
    return caps && gst_caps_get_size(caps) > 0
        && std::strncmp(gst_structure_get_name(gst_caps_get_structure(caps, 0)), prefix, std::strlen(prefix))
        == 0;
}

/// How far a buffer comes ahead of the time at which it is to be decoded, or heard; none when it does not
/// tell.
std::optional<GstClockTimeDiff> leadOf(GstPad* pad, GstBuffer* buffer, GstElement* pipeline)
{
    const Owned<GstEvent> event(gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0));
    if (!event)
        return std::nullopt;
    const GstSegment* segment = nullptr;
    gst_event_parse_segment(event.get(), &segment);
    const GstClockTime due =
        gst_segment_to_running_time(segment, GST_FORMAT_TIME, GST_BUFFER_DTS_OR_PTS(buffer));
    const GstClockTime now = gst_element_get_current_running_time(pipeline);
    if (!GST_CLOCK_TIME_IS_VALID(due) || !GST_CLOCK_TIME_IS_VALID(now))
        return std::nullopt;
    return GST_CLOCK_DIFF(now, due);
}

/// What the demultiplexer asks for by itself is left out, or in; nothing for one that has no such setting.
void leaveOut(GstElement* demultiplexer, bool out)
{
    GParamSpec* spec = g_object_class_find_property(G_OBJECT_GET_CLASS(demultiplexer), "latency");
    if (spec && G_IS_PARAM_SPEC_INT(spec))
        g_object_set(demultiplexer, "latency", out ? 0 : G_PARAM_SPEC_INT(spec)->default_value, nullptr);
}

} // namespace

void PlayoutDelay::reset(GstElement* pipeline)
{
    {
        const MutexLock lock(m_mutex);
        m_pipeline = pipeline;
        m_need = PlayoutNeed();
        m_isToBeTold = false;
        m_firstSound.reset();
    }
    gst_pipeline_set_latency(GST_PIPELINE(pipeline), GST_CLOCK_TIME_NONE);
}

void PlayoutDelay::watch(GstElement* demultiplexer)
{
    g_signal_connect(demultiplexer, "pad-added", G_CALLBACK(padAdded), this);
}

void PlayoutDelay::padAdded(GstElement* demultiplexer, GstPad* pad, void* data)
{
    if (!isLive(demultiplexer))
        return;
    const Owned<GstCaps> caps(gst_pad_get_current_caps(pad));
    if (startsWith(caps.get(), "video/"))
        gst_pad_add_probe(
            pad, GST_PAD_PROBE_TYPE_BUFFER, dataCame<PlayoutNeed::Media::picture>, data, nullptr);
    else if (startsWith(caps.get(), "audio/"))
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, dataCame<PlayoutNeed::Media::sound>, data, nullptr);
}

template <PlayoutNeed::Media media>
GstPadProbeReturn PlayoutDelay::dataCame(GstPad* pad, GstPadProbeInfo* info, void* data)
{
    static_cast<PlayoutDelay*>(data)->take(media, pad, GST_PAD_PROBE_INFO_BUFFER(info));
    return GST_PAD_PROBE_OK;
}

void PlayoutDelay::take(PlayoutNeed::Media media, GstPad* pad, GstBuffer* buffer)
{
    GstElement* pipeline = nullptr;
    std::optional<std::int64_t> held;
    {
        const MutexLock lock(m_mutex);
        pipeline = m_pipeline;
        const std::optional<GstClockTimeDiff> lead = leadOf(pad, buffer, pipeline);
        const bool playing = GST_STATE(pipeline) == GST_STATE_PLAYING;
        if (lead && m_need.note(media, *lead, playing))
            m_isToBeTold = true;
        if (!m_isToBeTold)
            return;
        held = m_need.held();
    }
    // Without the lock: what follows asks elements, which may ask back. And tried, not waited for: telling
    // takes the pipeline's state lock, and who holds it to stop the pipeline waits for this thread.
    if (!GST_STATE_TRYLOCK(pipeline))
        return; // the next data tell it
    tell(pipeline, pad, held);
    GST_STATE_UNLOCK(pipeline);
}

void PlayoutDelay::tell(GstElement* pipeline, GstPad* pad, std::optional<std::int64_t> held)
{
    if (const Owned<GstElement> demultiplexer(gst_pad_get_parent_element(pad)); demultiplexer)
        leaveOut(demultiplexer.get(), held.has_value());
    // Tells the sinks, too.
    gst_pipeline_set_latency(
        GST_PIPELINE(pipeline), held ? static_cast<GstClockTime>(*held) : GST_CLOCK_TIME_NONE);
    const MutexLock lock(m_mutex);
    m_isToBeTold = m_need.held() != held;
}

void PlayoutDelay::beginSound(GstElement* sink)
{
    if (!sink)
        return;
    const Owned<GstPad> pad(gst_element_get_static_pad(sink, "sink"));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, soundCame, this, nullptr);
}

GstPadProbeReturn PlayoutDelay::soundCame(GstPad* pad, GstPadProbeInfo* info, void* data)
{
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    const FirstSound::Fate fate = static_cast<PlayoutDelay*>(data)->takeSound(pad, buffer);
    info->data = fate == FirstSound::Fate::isKept ? nullptr : buffer;
    switch (fate) {
    case FirstSound::Fate::isDropped:
        return GST_PAD_PROBE_DROP;
    case FirstSound::Fate::isKept:
        return GST_PAD_PROBE_HANDLED;
    case FirstSound::Fate::passes:
        break;
    }
    return GST_PAD_PROBE_OK;
}

FirstSound::Fate PlayoutDelay::takeSound(GstPad* pad, GstBuffer*& buffer)
{
    const MutexLock lock(m_mutex);
    if (!m_need.held() || GST_STATE(m_pipeline) == GST_STATE_PLAYING)
        return FirstSound::Fate::passes;
    const std::optional<GstClockTimeDiff> lead = leadOf(pad, buffer, m_pipeline);
    if (!lead)
        return FirstSound::Fate::passes;
    return m_firstSound.take(
        buffer, *lead + *m_need.held(), gst_element_get_current_running_time(m_pipeline));
}
