#include "t2mi.h"

#include "t2mi/extractor.h"

#include <memory>
#include <mutex>
#include <vector>

GST_DEBUG_CATEGORY_STATIC(t2miDebug);
#define GST_CAT_DEFAULT t2miDebug

using namespace tessary;

namespace {

enum Property { PropPid = 1, PropPlpId, PropFrame };
constexpr int kDefaultPid = 4096;
constexpr int kDefaultPlpId = 0;
constexpr const char* kSourceCaps = "video/mpegts, systemstream=(boolean)true, packetsize=(int)188";

// Sockets and FIFOs set no caps, so anything is let in; what is no transport stream finds no step and gives
// nothing.
GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);
GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("video/mpegts, systemstream=(boolean)true, packetsize=(int)188"));

struct Private
{
    std::mutex mutex; // guards all below: the streaming thread extracts while others set and read properties
    int pid = kDefaultPid;
    int plpId = kDefaultPlpId;
    std::unique_ptr<t2mi::Extractor> extractor =
        std::make_unique<t2mi::Extractor>(kDefaultPid, kDefaultPlpId);
    bool capsSent = false;
    bool discont = true;

    void restart()
    {
        extractor = std::make_unique<t2mi::Extractor>(pid, plpId);
        discont = true;
    }
};

} // namespace

struct _InstrumentT2Mi
{
    GstElement parent;
    GstPad* sinkPad; // owned by the element
    GstPad* srcPad; // owned by the element
    Private* d;
};

G_DEFINE_TYPE(InstrumentT2Mi, instrument_t2mi, GST_TYPE_ELEMENT)

namespace {

// The daemon reads GLib's old array type here, as the platform's element hands it out.
G_GNUC_BEGIN_IGNORE_DEPRECATIONS
GValueArray* toValueArray(const std::vector<std::uint8_t>& bytes)
{
    GValueArray* array = g_value_array_new(static_cast<guint>(bytes.size()));
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_UCHAR);
    for (const std::uint8_t byte : bytes) {
        g_value_set_uchar(&value, byte);
        g_value_array_append(array, &value);
    }
    g_value_unset(&value);
    return array;
}
G_GNUC_END_IGNORE_DEPRECATIONS

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    Private* d = INSTRUMENT_T2MI(object)->d;
    const std::lock_guard<std::mutex> lock(d->mutex);
    int* field = id == PropPid ? &d->pid : id == PropPlpId ? &d->plpId : nullptr;
    if (field == nullptr) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    if (*field == g_value_get_int(value))
        return;
    *field = g_value_get_int(value);
    d->restart();
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    Private* d = INSTRUMENT_T2MI(object)->d;
    const std::lock_guard<std::mutex> lock(d->mutex);
    switch (id) {
    case PropPid:
        g_value_set_int(value, d->pid);
        break;
    case PropPlpId:
        g_value_set_int(value, d->plpId);
        break;
    case PropFrame:
        g_value_take_boxed(value, toValueArray(d->extractor->lastPacket()));
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

// Caps have to go ahead of the segment; a source without caps never sends that event, so it is sent here.
bool sendCapsOnce(InstrumentT2Mi* self)
{
    {
        const std::lock_guard<std::mutex> lock(self->d->mutex);
        if (self->d->capsSent)
            return true;
        self->d->capsSent = true;
    }
    GstCaps* caps = gst_caps_from_string(kSourceCaps);
    const bool sent = gst_pad_set_caps(self->srcPad, caps) != FALSE;
    gst_caps_unref(caps);
    return sent;
}

gboolean sendSegment(InstrumentT2Mi* self, GstObject* parent, GstEvent* event)
{
    sendCapsOnce(self);
    const GstSegment* segment = nullptr;
    gst_event_parse_segment(event, &segment);
    if (segment->format != GST_FORMAT_BYTES)
        return gst_pad_event_default(self->sinkPad, parent, event);
    // Byte positions of the outer stream mean nothing inside it: the inner stream is one open run of bytes.
    GstSegment inner;
    gst_segment_init(&inner, GST_FORMAT_BYTES);
    GstEvent* replacement = gst_event_new_segment(&inner);
    gst_event_set_seqnum(replacement, gst_event_get_seqnum(event));
    gst_event_unref(event);
    return gst_pad_push_event(self->srcPad, replacement);
}

gboolean sinkEvent(GstPad* pad, GstObject* parent, GstEvent* event)
{
    InstrumentT2Mi* self = INSTRUMENT_T2MI(parent);
    switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_CAPS:
        gst_event_unref(event);
        return sendCapsOnce(self);
    case GST_EVENT_SEGMENT:
        return sendSegment(self, parent, event);
    case GST_EVENT_FLUSH_STOP: {
        const std::lock_guard<std::mutex> lock(self->d->mutex);
        self->d->restart();
        break;
    }
    default:
        break;
    }
    return gst_pad_event_default(pad, parent, event);
}

// The outer stream's length and positions are not those of the inner one.
gboolean srcQuery(GstPad* pad, GstObject* parent, GstQuery* query)
{
    GstFormat format = GST_FORMAT_UNDEFINED;
    switch (GST_QUERY_TYPE(query)) {
    case GST_QUERY_SEEKING:
        gst_query_parse_seeking(query, &format, nullptr, nullptr, nullptr);
        gst_query_set_seeking(query, format, FALSE, 0, -1);
        return TRUE;
    case GST_QUERY_DURATION:
        gst_query_parse_duration(query, &format, nullptr);
        if (format == GST_FORMAT_BYTES)
            return FALSE;
        break;
    default:
        break;
    }
    return gst_pad_query_default(pad, parent, query);
}

gboolean srcEvent(GstPad* pad, GstObject* parent, GstEvent* event)
{
    if (GST_EVENT_TYPE(event) == GST_EVENT_SEEK) {
        gst_event_unref(event);
        return FALSE;
    }
    return gst_pad_event_default(pad, parent, event);
}

GstFlowReturn chain(GstPad*, GstObject* parent, GstBuffer* input)
{
    InstrumentT2Mi* self = INSTRUMENT_T2MI(parent);
    GstMapInfo map;
    if (!gst_buffer_map(input, &map, GST_MAP_READ)) {
        gst_buffer_unref(input);
        GST_ELEMENT_ERROR(self, RESOURCE, READ, ("A received buffer could not be read."), (nullptr));
        return GST_FLOW_ERROR;
    }
    std::vector<std::uint8_t> packets;
    bool discont = false;
    {
        const std::lock_guard<std::mutex> lock(self->d->mutex);
        self->d->extractor->push(map.data, map.size, packets);
        if (!packets.empty())
            std::swap(discont, self->d->discont);
    }
    gst_buffer_unmap(input, &map);
    GstFlowReturn result = GST_FLOW_OK;
    if (!packets.empty()) {
        sendCapsOnce(self);
        GstBuffer* output = gst_buffer_new_allocate(nullptr, packets.size(), nullptr);
        gst_buffer_fill(output, 0, packets.data(), packets.size());
        GST_BUFFER_PTS(output) = GST_BUFFER_PTS(input);
        GST_BUFFER_DTS(output) = GST_BUFFER_DTS(input);
        if (discont)
            GST_BUFFER_FLAG_SET(output, GST_BUFFER_FLAG_DISCONT);
        result = gst_pad_push(self->srcPad, output);
    }
    gst_buffer_unref(input);
    return result;
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition)
{
    InstrumentT2Mi* self = INSTRUMENT_T2MI(element);
    if (transition == GST_STATE_CHANGE_READY_TO_PAUSED) {
        const std::lock_guard<std::mutex> lock(self->d->mutex);
        self->d->restart();
        self->d->capsSent = false;
    }
    return GST_ELEMENT_CLASS(instrument_t2mi_parent_class)->change_state(element, transition);
}

void finalize(GObject* object)
{
    delete INSTRUMENT_T2MI(object)->d;
    G_OBJECT_CLASS(instrument_t2mi_parent_class)->finalize(object);
}

void installProperties(GObjectClass* objectClass)
{
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    // The whole range is taken: a number outside the field's width is no error, it only matches nothing.
    g_object_class_install_property(objectClass, PropPid,
        g_param_spec_int("pid", "PID", "PID of the transport stream packets that carry T2-MI", G_MININT,
            G_MAXINT, kDefaultPid, flags));
    g_object_class_install_property(objectClass, PropPlpId,
        g_param_spec_int(
            "plpid", "PLP", "Physical layer pipe to extract", G_MININT, G_MAXINT, kDefaultPlpId, flags));
    const auto readOnly = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
    g_object_class_install_property(objectClass, PropFrame,
        g_param_spec_value_array("frame", "T2-MI frame", "Newest whole T2-MI packet, from header to CRC",
            g_param_spec_uchar("byte", "Byte", "One byte of the packet", 0, 255, 0, readOnly), readOnly));
}

} // namespace

static void instrument_t2mi_class_init(InstrumentT2MiClass* klass)
{
    GST_DEBUG_CATEGORY_INIT(t2miDebug, "t2mi", 0, "T2-MI extractor");
    GObjectClass* objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    objectClass->finalize = finalize;
    installProperties(objectClass);
    GstElementClass* elementClass = GST_ELEMENT_CLASS(klass);
    elementClass->change_state = changeState;
    gst_element_class_add_static_pad_template(elementClass, &sinkTemplate);
    gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
    gst_element_class_set_static_metadata(elementClass, "T2-MI extractor", "Codec/Demuxer",
        "Takes the transport stream of one PLP out of T2-MI", "Tessary");
}

static void instrument_t2mi_init(InstrumentT2Mi* self)
{
    self->d = new Private;
    self->sinkPad = gst_pad_new_from_static_template(&sinkTemplate, "sink");
    gst_pad_set_chain_function(self->sinkPad, chain);
    gst_pad_set_event_function(self->sinkPad, sinkEvent);
    gst_element_add_pad(GST_ELEMENT(self), self->sinkPad);
    self->srcPad = gst_pad_new_from_static_template(&srcTemplate, "src");
    gst_pad_set_event_function(self->srcPad, srcEvent);
    gst_pad_set_query_function(self->srcPad, srcQuery);
    gst_pad_use_fixed_caps(self->srcPad);
    gst_element_add_pad(GST_ELEMENT(self), self->srcPad);
}
