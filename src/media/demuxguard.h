#pragma once

#include "media/tspackets.h"
#include "media/untimedpes.h"

#include <atomic>
#include <gst/gst.h>

/// Stands between a demultiplexer and what comes to it: see UntimedPes.
///
/// tsdemux (1.22, and 1.26 the same) ends the process when it can not tell the time yet, because the program's clock
/// reference has not come or is far from the time stamps, and the first PES packet of a stream has no time stamp.
/// Streams are not trusted.
///
/// Threads: the streaming thread that comes to the demultiplexer.
class DemuxGuard
{
public:
    /// Guards a demultiplexer that nothing has come to yet, for as long as that lives.
    static void watch(GstElement* demultiplexer);

    DemuxGuard(const DemuxGuard&) = delete;
    DemuxGuard& operator=(const DemuxGuard&) = delete;

private:
    explicit DemuxGuard(GstPad* sink);
    ~DemuxGuard();

    static GstFlowReturn bufferCame(GstPad* pad, GstObject* parent, GstBuffer* buffer);
    static void padAdded(GstElement* demultiplexer, GstPad* pad, void* self);
    static void streamsBegan(GstElement* demultiplexer, void* self);
    static GstPadProbeReturn dataLeft(GstPad* pad, GstPadProbeInfo* info, void* self);

    GstFlowReturn take(GstPad* pad, GstObject* parent, GstBuffer* buffer);
    GstFlowReturn hand(GstPad* pad, GstObject* parent, GstBuffer* like);
    void settle() { m_isSettled.store(true, std::memory_order_release); }

    GstPadChainFunction m_chain; ///< the demultiplexer's own
    TsPackets m_packets;
    UntimedPes m_untimedPes;
    std::vector<std::uint8_t> m_run; ///< packets that the demultiplexer has to get
    bool m_isGap = false; ///< before them
    /// Hands all of it to the thread that gives the demultiplexer's last reference back. That count is enough for the
    /// processor; ThreadSanitizer does not see it.
    std::atomic<bool> m_isSettled{false};
};
