// The display of a booted instrument: Debian's kmssink, with what the platform's has beyond it.
#include "display.h"

#include <gst/video/gstvideosink.h>
#include <gst/video/video.h>

#include <cstdlib>
#include <dlfcn.h>

GST_DEBUG_CATEGORY_STATIC(boardDisplayDebug);
#define GST_CAT_DEFAULT boardDisplayDebug

namespace {

enum Property { PropDisplayRatio = 1 };

// Where Debian's plug-in is kept, for two elements of one name can not lie in the plug-in folder.
constexpr const char* kRealPlugin = "/usr/lib/tessary-bench/board/libgstkms.so";
constexpr const char* kDriver = "virtio_gpu"; // not among those that the real element tries by itself

GstElementClass* parentClass = nullptr; // the real element's

/// Beside the instance, whose size is the real element's.
struct Private
{
    int displayRatio = 0;
    GstVideoInfo input;
    GstVideoInfo screen;
    GstVideoConverter* converter = nullptr; // from input to screen

    Private()
    {
        gst_video_info_init(&input);
        gst_video_info_init(&screen);
    }
    ~Private() { forgetConverter(); }
    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;

    void forgetConverter()
    {
        if (converter != nullptr)
            gst_video_converter_free(converter);
        converter = nullptr;
    }
};

GQuark privateQuark()
{
    static const GQuark quark = g_quark_from_static_string("board-display");
    return quark;
}

Private& of(gpointer object)
{
    return *static_cast<Private*>(g_object_get_qdata(G_OBJECT(object), privateQuark()));
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    if (id == PropDisplayRatio)
        of(object).displayRatio = g_value_get_int(value);
    else
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    if (id == PropDisplayRatio)
        g_value_set_int(value, of(object).displayRatio);
    else
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
}

// The platform's planes scale and take every format; the emulated one does neither, so it is done before it.
GstCaps* getCaps(GstBaseSink* sink, GstCaps* filter)
{
    GstCaps* caps = gst_pad_get_pad_template_caps(GST_BASE_SINK_PAD(sink));
    if (filter == nullptr)
        return caps;
    GstCaps* both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(caps);
    return both;
}

gboolean setCaps(GstBaseSink* sink, GstCaps* caps)
{
    Private& d = of(sink);
    d.forgetConverter();
    int width = 0;
    int height = 0;
    g_object_get(sink, "display-width", &width, "display-height", &height, nullptr);
    if (!gst_video_info_from_caps(&d.input, caps) || width <= 0 || height <= 0)
        return FALSE;
    gst_video_info_set_format(
        &d.screen, GST_VIDEO_FORMAT_BGRx, static_cast<guint>(width), static_cast<guint>(height));
    // The converter copies fields as they lie; both sides have to agree about them.
    d.screen.interlace_mode = d.input.interlace_mode;
    d.screen.fps_n = d.input.fps_n;
    d.screen.fps_d = d.input.fps_d;
    d.converter = gst_video_converter_new(&d.input, &d.screen, nullptr);
    if (d.converter == nullptr)
        return FALSE;
    GstCaps* shown = gst_video_info_to_caps(&d.screen);
    const gboolean taken = GST_BASE_SINK_CLASS(parentClass)->set_caps(sink, shown);
    gst_caps_unref(shown);
    return taken;
}

// The real element offers memory of the device, in its own format.
gboolean proposeAllocation(GstBaseSink*, GstQuery* query)
{
    gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
    return TRUE;
}

/// The picture as the screen takes it; owned by the caller, null when it can not be read.
GstBuffer* forScreen(const Private& d, GstBuffer* picture)
{
    GstVideoFrame input;
    if (d.converter == nullptr || !gst_video_frame_map(&input, &d.input, picture, GST_MAP_READ))
        return nullptr;
    GstBuffer* converted = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&d.screen), nullptr);
    GstVideoFrame output;
    if (gst_video_frame_map(&output, &d.screen, converted, GST_MAP_WRITE)) {
        gst_video_converter_frame(d.converter, &input, &output);
        gst_video_frame_unmap(&output);
    }
    gst_video_frame_unmap(&input);
    return converted;
}

GstFlowReturn showFrame(GstVideoSink* sink, GstBuffer* picture)
{
    GstVideoSinkClass* real = GST_VIDEO_SINK_CLASS(parentClass);
    if (picture == nullptr) // the last one again
        return real->show_frame(sink, nullptr);
    GstBuffer* converted = forScreen(of(sink), picture);
    if (converted == nullptr)
        return GST_FLOW_ERROR;
    const GstFlowReturn shown = real->show_frame(sink, converted);
    gst_buffer_unref(converted);
    return shown;
}

void initInstance(GTypeInstance* instance, gpointer)
{
    g_object_set_qdata_full(
        G_OBJECT(instance), privateQuark(), new Private, [](gpointer d) { delete static_cast<Private*>(d); });
}

// Later than the instance's initialisation, behind which the real element's properties get their defaults.
void constructed(GObject* object)
{
    G_OBJECT_CLASS(parentClass)->constructed(object);
    // The emulated device has no vertical blank that could be waited for.
    g_object_set(object, "driver-name", kDriver, "skip-vsync", TRUE, nullptr);
}

void initClass(gpointer klass, gpointer)
{
    parentClass = static_cast<GstElementClass*>(g_type_class_peek_parent(klass));
    auto* objectClass = static_cast<GObjectClass*>(klass);
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    objectClass->constructed = constructed;
    g_object_class_install_property(objectClass, PropDisplayRatio,
        g_param_spec_int("display-ratio", "Display ratio", "Picture format of the display", G_MININT,
            G_MAXINT, 0, static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));
    auto* baseClass = static_cast<GstBaseSinkClass*>(klass);
    baseClass->get_caps = getCaps;
    baseClass->set_caps = setCaps;
    baseClass->propose_allocation = proposeAllocation;
    static_cast<GstVideoSinkClass*>(klass)->show_frame = showFrame;
}

/// The real element's type, registered for `plugin`; 0 when Debian's plug-in is not there.
GType realType(GstPlugin* plugin)
{
    const char* elsewhere = std::getenv("INSTRUMENT_KMS_PLUGIN");
    const char* path = elsewhere != nullptr ? elsewhere : kRealPlugin;
    void* module = ::dlopen(path, RTLD_NOW | RTLD_LOCAL); // stays, as types do
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): that is dlsym's way
    auto* describe = module != nullptr
        ? reinterpret_cast<const GstPluginDesc* (*)()>(::dlsym(module, "gst_plugin_kms_get_desc"))
        : nullptr;
    if (describe == nullptr || !describe()->plugin_init(plugin)) {
        GST_ERROR("%s can not be used: %s", path, module == nullptr ? ::dlerror() : "it has no kmssink");
        return 0;
    }
    return g_type_from_name("GstKMSSink");
}

} // namespace

bool registerDisplay(GstPlugin* plugin)
{
    GST_DEBUG_CATEGORY_INIT(boardDisplayDebug, "boarddisplay", 0, "Display of the board");
    const GType real = realType(plugin);
    if (real == 0)
        return false;
    GTypeQuery size;
    g_type_query(real, &size);
    GTypeInfo info{};
    info.class_size = static_cast<guint16>(size.class_size);
    info.class_init = initClass;
    info.instance_size = static_cast<guint16>(size.instance_size);
    info.instance_init = initInstance;
    const GType type =
        g_type_register_static(real, "InstrumentBoardDisplay", &info, static_cast<GTypeFlags>(0));
    // Takes the place of the real element, which is of the same plug-in by now.
    return gst_element_register(plugin, "kmssink", GST_RANK_SECONDARY, type) != FALSE;
}
