#include "vpudec.h"

#include <array>
#include <atomic>
#include <cstring>
#include <mutex>

namespace {

struct Codec
{
    const char* mediaType;
    const char* parser;
    const char* decoder;
};

constexpr std::array<Codec, 2> kCodecs{{
    {"video/x-h264", "h264parse", "avdec_h264"},
    {"video/x-h265", "h265parse", "avdec_h265"},
}};

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-h264; video/x-h265"));
GstStaticPadTemplate srcTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));

struct Private
{
    std::mutex mutex; // guards the children: they are plugged on a streaming thread, removed on others
    GstPad* sinkPad = nullptr; // owned by the element
    GstPad* srcPad = nullptr; // owned by the element
    const Codec* codec = nullptr; // of the children; null without children
};

} // namespace

struct _InstrumentVpuDec
{
    GstBin parent;
    std::atomic<Private*> d; // handed over to the streaming threads
};

G_DEFINE_TYPE(InstrumentVpuDec, instrument_vpu_dec, GST_TYPE_BIN)

namespace {

const Codec* findCodec(const GstCaps* caps)
{
    const char* name = gst_structure_get_name(gst_caps_get_structure(caps, 0));
    for (const Codec& codec : kCodecs) {
        if (std::strcmp(name, codec.mediaType) == 0)
            return &codec;
    }
    return nullptr;
}

// Call with the mutex held, like plugChildren().
void removeChildren(InstrumentVpuDec* self, Private& d)
{
    gst_ghost_pad_set_target(GST_GHOST_PAD(d.sinkPad), nullptr);
    gst_ghost_pad_set_target(GST_GHOST_PAD(d.srcPad), nullptr);
    while (GST_BIN_CHILDREN(self) != nullptr) {
        auto* child = GST_ELEMENT(gst_object_ref(GST_BIN_CHILDREN(self)->data));
        gst_bin_remove(GST_BIN(self), child); // drops the bin's reference; the state is set with our own
        gst_element_set_state(child, GST_STATE_NULL);
        gst_object_unref(child);
    }
    d.codec = nullptr;
}

void setTarget(GstPad* ghost, GstElement* element, const char* padName)
{
    GstPad* target = gst_element_get_static_pad(element, padName);
    gst_ghost_pad_set_target(GST_GHOST_PAD(ghost), target);
    gst_object_unref(target);
}

bool plugChildren(InstrumentVpuDec* self, Private& d, const Codec& codec)
{
    GstElement* parser = gst_element_factory_make(codec.parser, nullptr);
    GstElement* decoder = gst_element_factory_make(codec.decoder, nullptr);
    if (parser == nullptr || decoder == nullptr) {
        GST_ELEMENT_ERROR(self, CORE, MISSING_PLUGIN,
            ("%s is missing. Install gstreamer1.0-plugins-bad and gstreamer1.0-libav.",
                parser == nullptr ? codec.parser : codec.decoder),
            (nullptr));
        gst_clear_object(&parser);
        gst_clear_object(&decoder);
        return false;
    }
    gst_bin_add_many(GST_BIN(self), parser, decoder, nullptr);
    if (!gst_element_link(parser, decoder))
        return false;
    setTarget(d.srcPad, decoder, "src");
    gst_element_sync_state_with_parent(decoder);
    gst_element_sync_state_with_parent(parser);
    setTarget(d.sinkPad, parser, "sink");
    d.codec = &codec;
    return true;
}

gboolean sinkEvent(GstPad* pad, GstObject* parent, GstEvent* event)
{
    InstrumentVpuDec* self = INSTRUMENT_VPU_DEC(parent);
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        const Codec* codec = findCodec(caps);
        Private& d = *self->d;
        const std::lock_guard<std::mutex> lock(d.mutex);
        if (codec != d.codec) {
            removeChildren(self, d);
            if (codec == nullptr || !plugChildren(self, d, *codec)) {
                gst_event_unref(event);
                return FALSE;
            }
        }
    }
    return gst_pad_event_default(pad, parent, event);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition)
{
    const GstStateChangeReturn result =
        GST_ELEMENT_CLASS(instrument_vpu_dec_parent_class)->change_state(element, transition);
    if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) {
        InstrumentVpuDec* self = INSTRUMENT_VPU_DEC(element);
        Private& d = *self->d;
        const std::lock_guard<std::mutex> lock(d.mutex);
        removeChildren(self, d);
    }
    return result;
}

void finalize(GObject* object)
{
    delete INSTRUMENT_VPU_DEC(object)->d.load();
    G_OBJECT_CLASS(instrument_vpu_dec_parent_class)->finalize(object);
}

} // namespace

static void instrument_vpu_dec_class_init(InstrumentVpuDecClass* klass)
{
    G_OBJECT_CLASS(klass)->finalize = finalize;
    GstElementClass* elementClass = GST_ELEMENT_CLASS(klass);
    elementClass->change_state = changeState;
    gst_element_class_add_static_pad_template(elementClass, &sinkTemplate);
    gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
    gst_element_class_set_static_metadata(elementClass, "Video decoder of the module", "Codec/Decoder/Video",
        "Decodes H.264 and H.265 as a demultiplexer gives them", "Tessary");
}

static void instrument_vpu_dec_init(InstrumentVpuDec* self)
{
    auto* d = new Private;
    GstPadTemplate* templ = gst_static_pad_template_get(&sinkTemplate);
    d->sinkPad = gst_ghost_pad_new_no_target_from_template("sink", templ);
    gst_object_unref(templ);
    gst_pad_set_event_function(d->sinkPad, sinkEvent);
    templ = gst_static_pad_template_get(&srcTemplate);
    d->srcPad = gst_ghost_pad_new_no_target_from_template("src", templ);
    gst_object_unref(templ);
    self->d = d;
    gst_element_add_pad(GST_ELEMENT(self), d->sinkPad);
    gst_element_add_pad(GST_ELEMENT(self), d->srcPad);
}
