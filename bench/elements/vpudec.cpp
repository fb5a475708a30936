#include "vpudec.h"

#include <array>
#include <cstring>

namespace {

struct Codec {
    const char* mediaType;
    const char* parser;
    const char* decoder;
};

constexpr std::array<Codec, 2> kCodecs {{
    {"video/x-h264", "h264parse", "avdec_h264"},
    {"video/x-h265", "h265parse", "avdec_h265"},
}};

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-h264; video/x-h265"));
GstStaticPadTemplate srcTemplate
    = GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));

} // namespace

struct _InstrumentVpuDec {
    GstBin parent;
    GstPad* sinkPad;    // owned by the element
    GstPad* srcPad;     // owned by the element
    const Codec* codec; // of the children; null without children
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

void removeChildren(InstrumentVpuDec* self)
{
    gst_ghost_pad_set_target(GST_GHOST_PAD(self->sinkPad), nullptr);
    gst_ghost_pad_set_target(GST_GHOST_PAD(self->srcPad), nullptr);
    while (GST_BIN_CHILDREN(self) != nullptr) {
        auto* child = GST_ELEMENT(gst_object_ref(GST_BIN_CHILDREN(self)->data));
        gst_bin_remove(GST_BIN(self), child); // drops the bin's reference; the state is set with our own
        gst_element_set_state(child, GST_STATE_NULL);
        gst_object_unref(child);
    }
    self->codec = nullptr;
}

void setTarget(GstPad* ghost, GstElement* element, const char* padName)
{
    GstPad* target = gst_element_get_static_pad(element, padName);
    gst_ghost_pad_set_target(GST_GHOST_PAD(ghost), target);
    gst_object_unref(target);
}

bool plugChildren(InstrumentVpuDec* self, const Codec& codec)
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
    setTarget(self->srcPad, decoder, "src");
    gst_element_sync_state_with_parent(decoder);
    gst_element_sync_state_with_parent(parser);
    setTarget(self->sinkPad, parser, "sink");
    self->codec = &codec;
    return true;
}

gboolean sinkEvent(GstPad* pad, GstObject* parent, GstEvent* event)
{
    InstrumentVpuDec* self = INSTRUMENT_VPU_DEC(parent);
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        const Codec* codec = findCodec(caps);
        if (codec != self->codec) {
            removeChildren(self);
            if (codec == nullptr || !plugChildren(self, *codec)) {
                gst_event_unref(event);
                return FALSE;
            }
        }
    }
    return gst_pad_event_default(pad, parent, event);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition)
{
    const GstStateChangeReturn result
        = GST_ELEMENT_CLASS(instrument_vpu_dec_parent_class)->change_state(element, transition);
    if (transition == GST_STATE_CHANGE_PAUSED_TO_READY)
        removeChildren(INSTRUMENT_VPU_DEC(element));
    return result;
}

} // namespace

static void instrument_vpu_dec_class_init(InstrumentVpuDecClass* klass)
{
    GstElementClass* elementClass = GST_ELEMENT_CLASS(klass);
    elementClass->change_state = changeState;
    gst_element_class_add_static_pad_template(elementClass, &sinkTemplate);
    gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
    gst_element_class_set_static_metadata(elementClass, "Video decoder of the module", "Codec/Decoder/Video",
        "Decodes H.264 and H.265 as a demultiplexer gives them", "Tessary");
}

static void instrument_vpu_dec_init(InstrumentVpuDec* self)
{
    GstPadTemplate* templ = gst_static_pad_template_get(&sinkTemplate);
    self->sinkPad = gst_ghost_pad_new_no_target_from_template("sink", templ);
    gst_object_unref(templ);
    gst_pad_set_event_function(self->sinkPad, sinkEvent);
    gst_element_add_pad(GST_ELEMENT(self), self->sinkPad);
    templ = gst_static_pad_template_get(&srcTemplate);
    self->srcPad = gst_ghost_pad_new_no_target_from_template("src", templ);
    gst_object_unref(templ);
    gst_element_add_pad(GST_ELEMENT(self), self->srcPad);
}
