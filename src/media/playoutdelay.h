#pragma once

#include "media/firstsound.h"
#include "media/playoutneed.h"
#include "system/mutex.h"

#include <gst/gst.h>

/// Has a live pipeline hold picture and sound back no longer than its stream needs; see PlayoutNeed and
/// FirstSound. As long as nothing is known of the stream, and for all that is not live, GStreamer's own rules
/// hold.
///
/// The elements that it is shown must be gone, or at rest, when it is.
class PlayoutDelay
{
public:
    /// Before a mode begins, with the pipeline in NULL.
    void reset(GstElement* pipeline);

    /// Looks at what a demultiplexer in the pipeline gives. Any thread.
    void watch(GstElement* demultiplexer);

    /// Looks at what comes to the sound's sink until the pipeline plays. Null: nothing.
    void beginSound(GstElement* sink);

private:
    static void padAdded(GstElement* demultiplexer, GstPad* pad, void* data);
    template <PlayoutNeed::Media media>
    static GstPadProbeReturn dataCame(GstPad* pad, GstPadProbeInfo* info, void* data);
    static GstPadProbeReturn soundCame(GstPad* pad, GstPadProbeInfo* info, void* data);
    void take(PlayoutNeed::Media media, GstPad* pad, GstBuffer* buffer);
    void tell(GstElement* pipeline, GstPad* pad, std::optional<std::int64_t> held);
    FirstSound::Fate takeSound(GstPad* pad, GstBuffer*& buffer);

    Mutex m_mutex; ///< hands the rest over between the main thread and the streaming threads
    GstElement* m_pipeline GUARDED_BY(m_mutex) = nullptr; ///< borrowed
    PlayoutNeed m_need GUARDED_BY(m_mutex);
    bool m_isToBeTold GUARDED_BY(m_mutex) = false; ///< the pipeline does not know yet what m_need holds
    FirstSound m_firstSound GUARDED_BY(m_mutex);
};
