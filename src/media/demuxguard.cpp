#include "media/demuxguard.h"

#include "media/owned.h"

namespace {

/// A buffer's bytes, while it lives.
class ReadableBytes
{
public:
    explicit ReadableBytes(GstBuffer* buffer)
        : m_buffer(buffer)
        , m_isMapped(gst_buffer_map(buffer, &m_map, GST_MAP_READ) != FALSE)
    {
    }
    ~ReadableBytes()
    {
        if (m_isMapped)
            gst_buffer_unmap(m_buffer, &m_map);
    }
    ReadableBytes(const ReadableBytes&) = delete;
    ReadableBytes& operator=(const ReadableBytes&) = delete;

    const std::uint8_t* first() const { return m_isMapped ? m_map.data : nullptr; }
    std::size_t size() const { return m_isMapped ? m_map.size : 0; }

private:
    GstBuffer* m_buffer;
    GstMapInfo m_map{};
    bool m_isMapped;
};

} // namespace

void DemuxGuard::watch(GstElement* demultiplexer)
{
    const Owned<GstPad> sink(gst_element_get_static_pad(demultiplexer, "sink"));
    if (!sink)
        return;
    auto* const self = new DemuxGuard(sink.get());
    gst_pad_set_chain_function_full(
        sink.get(), bufferCame, self, [](void* guard) { delete static_cast<DemuxGuard*>(guard); });
    g_signal_connect(demultiplexer, "pad-added", G_CALLBACK(padAdded), self);
    g_signal_connect(demultiplexer, "no-more-pads", G_CALLBACK(streamsBegan), self);
}

DemuxGuard::DemuxGuard(GstPad* sink)
    : m_chain(GST_PAD_CHAINFUNC(sink))
{
    settle();
}

DemuxGuard::~DemuxGuard()
{
    static_cast<void>(m_isSettled.load(std::memory_order_acquire));
}

GstFlowReturn DemuxGuard::bufferCame(GstPad* pad, GstObject* parent, GstBuffer* buffer)
{
    return static_cast<DemuxGuard*>(pad->chaindata)->take(pad, parent, buffer);
}

void DemuxGuard::padAdded(GstElement*, GstPad* pad, void* self)
{
    gst_pad_add_probe(pad,
        static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST), dataLeft,
        self, nullptr);
}

/// Behind the last data of the streams before.
void DemuxGuard::streamsBegan(GstElement*, void* self)
{
    auto* const guard = static_cast<DemuxGuard*>(self);
    guard->m_untimedPes.streamsBegan();
    guard->settle();
}

GstPadProbeReturn DemuxGuard::dataLeft(GstPad*, GstPadProbeInfo*, void* self)
{
    auto* const guard = static_cast<DemuxGuard*>(self);
    guard->m_untimedPes.dataLeft();
    guard->settle();
    return GST_PAD_PROBE_OK;
}

/// Takes the buffer over.
GstFlowReturn DemuxGuard::take(GstPad* pad, GstObject* parent, GstBuffer* buffer)
{
    if (GST_BUFFER_IS_DISCONT(buffer)) { // the demultiplexer forgets what it has
        m_packets.reset();
        m_untimedPes.streamsBegan();
        m_isGap = true;
    }
    {
        const ReadableBytes bytes(buffer);
        m_packets.add(bytes.first(), bytes.size());
    }
    GstFlowReturn result = GST_FLOW_OK;
    while (const std::uint8_t* packet = m_packets.next()) {
        if (UntimedPes::begins(packet) && result == GST_FLOW_OK)
            result = hand(pad, parent, buffer);
        if (m_untimedPes.take(packet))
            m_run.insert(m_run.end(), packet, packet + UntimedPes::packetSize);
    }
    if (result == GST_FLOW_OK)
        result = hand(pad, parent, buffer);
    m_run.clear();
    gst_buffer_unref(buffer);
    settle();
    return result;
}

/// Hands on what has been gathered, with the flags and times of the buffer in which it came.
GstFlowReturn DemuxGuard::hand(GstPad* pad, GstObject* parent, GstBuffer* like)
{
    if (m_run.empty())
        return GST_FLOW_OK;
    GstBuffer* const packets = gst_buffer_new_memdup(m_run.data(), m_run.size());
    gst_buffer_copy_into(packets, like,
        static_cast<GstBufferCopyFlags>(GST_BUFFER_COPY_FLAGS | GST_BUFFER_COPY_TIMESTAMPS), 0, gsize(-1));
    if (m_isGap)
        GST_BUFFER_FLAG_SET(packets, GST_BUFFER_FLAG_DISCONT);
    else
        GST_BUFFER_FLAG_UNSET(packets, GST_BUFFER_FLAG_DISCONT);
    m_isGap = false;
    m_run.clear();
    return m_chain(pad, parent, packets);
}
