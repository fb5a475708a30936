#include "kmssink.h"

#include "display.h"
#include "displaywriter.h"

#include <mutex>
#include <string>
#include <unistd.h>

GST_DEBUG_CATEGORY_STATIC(kmsSinkDebug);
#define GST_CAT_DEFAULT kmsSinkDebug

namespace {

enum Property { PropDisplayRatio = 1, PropPictureLocation };
constexpr const char* kDefaultPicture = "/run/bench/display.ppm";
constexpr gint64 kWritePeriodUs = 200000;
constexpr gint64 kWatchedPeriodUs = 75000; // more than ten pictures a second
constexpr gint64 kNsPerUs = 1000;

// The formats of the kernel's display planes.
#define DISPLAY_FORMATS                                                                                      \
    "{ BGRA, RGBA, P016_LE, P010_10LE, NV24, BGRx, RGBx, RGB, BGR, Y42B, NV61, NV16, UYVY, YVYU, YUY2, "     \
    "I420, YV12, "                                                                                           \
    "NV21, NV12, RGB16, BGR16 }"
GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE(DISPLAY_FORMATS)));

struct Private
{
    std::mutex mutex; // guards all below: pictures come on the streaming thread, start and stop on others
    std::string picturePath = kDefaultPicture;
    int displayRatio = 0;
    DisplayWriter writer;
    DisplayReport report;
    GstBuffer* newest = nullptr; // owned
    bool newestWritten = false;
    bool warned = false;
    gint64 lastWriteUs = 0;
};

} // namespace

struct _InstrumentKmsSink
{
    GstVideoSink parent;
    Private* d;
};

G_DEFINE_TYPE(InstrumentKmsSink, instrument_kms_sink, GST_TYPE_VIDEO_SINK)

namespace {

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    Private* d = INSTRUMENT_KMS_SINK(object)->d;
    const std::lock_guard<std::mutex> lock(d->mutex);
    switch (id) {
    case PropDisplayRatio:
        d->displayRatio = g_value_get_int(value);
        break;
    case PropPictureLocation: {
        const char* text = g_value_get_string(value);
        d->picturePath = text != nullptr ? text : "";
        break;
    }
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    Private* d = INSTRUMENT_KMS_SINK(object)->d;
    const std::lock_guard<std::mutex> lock(d->mutex);
    switch (id) {
    case PropDisplayRatio:
        g_value_set_int(value, d->displayRatio);
        break;
    case PropPictureLocation:
        g_value_set_string(value, d->picturePath.c_str());
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

std::string withoutSuffix(const std::string& picturePath)
{
    const std::size_t dot = picturePath.rfind('.');
    const std::size_t slash = picturePath.rfind('/');
    const bool hasSuffix = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    return hasSuffix ? picturePath.substr(0, dot) : picturePath;
}

std::string reportPath(const std::string& picturePath)
{
    return withoutSuffix(picturePath) + ".json";
}

guint64 droppedByBase(InstrumentKmsSink* self)
{
    guint64 dropped = 0;
    GstStructure* stats = gst_base_sink_get_stats(GST_BASE_SINK(self));
    gst_structure_get_uint64(stats, "dropped", &dropped);
    gst_structure_free(stats);
    return dropped;
}

// A display that can not be watched still displays: a failure is told once and changes nothing.
void warnOnce(InstrumentKmsSink* self, const std::string& path, int error)
{
    if (error == 0 || self->d->warned)
        return;
    self->d->warned = true;
    GST_WARNING_OBJECT(self, "cannot write %s: %s; make its folder, or set \"picture-location\"",
        path.c_str(), g_strerror(error));
}

// Call with the mutex held.
void writeFiles(InstrumentKmsSink* self)
{
    Private* d = self->d;
    if (d->newest != nullptr && !d->newestWritten) {
        warnOnce(self, d->picturePath, d->writer.writePicture(d->picturePath, d->newest));
        d->newestWritten = true;
    }
    const std::string path = reportPath(d->picturePath);
    warnOnce(self, path, DisplayWriter::writeReport(path, d->report));
    d->lastWriteUs = g_get_monotonic_time();
}

// Somebody looks at the pictures as they come, and says so by a file beside them. Otherwise their conversion is not worth
// the processor's time.
gint64 writePeriodUs(InstrumentKmsSink* self)
{
    const std::string mark = withoutSuffix(self->d->picturePath) + ".watched";
    return access(mark.c_str(), F_OK) == 0 ? kWatchedPeriodUs : kWritePeriodUs;
}

gboolean start(GstBaseSink* base)
{
    InstrumentKmsSink* self = INSTRUMENT_KMS_SINK(base);
    const std::lock_guard<std::mutex> lock(self->d->mutex);
    self->d->report = DisplayReport();
    self->d->warned = false;
    writeFiles(self);
    self->d->lastWriteUs = 0; // the first picture is written at once
    return TRUE;
}

gboolean stop(GstBaseSink* base)
{
    InstrumentKmsSink* self = INSTRUMENT_KMS_SINK(base);
    const guint64 dropped = droppedByBase(self);
    const std::lock_guard<std::mutex> lock(self->d->mutex);
    // The base class may have cleared its count by now; the larger one is the true one.
    if (dropped > self->d->report.dropped)
        self->d->report.dropped = dropped;
    self->d->report.state = "stopped";
    writeFiles(self);
    gst_clear_buffer(&self->d->newest);
    return TRUE;
}

gboolean setInfo(GstVideoSink* sink, GstCaps*, const GstVideoInfo* info)
{
    Private* d = INSTRUMENT_KMS_SINK(sink)->d;
    const std::lock_guard<std::mutex> lock(d->mutex);
    if (d->newest != nullptr && !d->newestWritten)
        writeFiles(
            INSTRUMENT_KMS_SINK(sink)); // later the old picture could not be read in its format any more
    gst_clear_buffer(&d->newest);
    d->writer.setFormat(*info);
    d->report.width = GST_VIDEO_INFO_WIDTH(info);
    d->report.height = GST_VIDEO_INFO_HEIGHT(info);
    return TRUE;
}

// Decoders lay their planes out with borders; saying that these are understood saves a copy of each picture.
gboolean proposeAllocation(GstBaseSink*, GstQuery* query)
{
    gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
    return TRUE;
}

GstFlowReturn showFrame(GstVideoSink* sink, GstBuffer* buffer)
{
    InstrumentKmsSink* self = INSTRUMENT_KMS_SINK(sink);
    const guint64 dropped = droppedByBase(self);
    const std::lock_guard<std::mutex> lock(self->d->mutex);
    gst_buffer_replace(&self->d->newest, buffer);
    self->d->newestWritten = false;
    if (self->d->report.firstPictureNs == 0)
        self->d->report.firstPictureNs = g_get_monotonic_time() * kNsPerUs;
    self->d->report.dropped = dropped;
    self->d->report.state = "showing";
    if (g_get_monotonic_time() - self->d->lastWriteUs >= writePeriodUs(self))
        writeFiles(self);
    return GST_FLOW_OK;
}

// Counted here and not in showFrame(), which gets the first picture twice: at the preroll and at its time.
GstFlowReturn render(GstBaseSink* base, GstBuffer* buffer)
{
    {
        Private* d = INSTRUMENT_KMS_SINK(base)->d;
        const std::lock_guard<std::mutex> lock(d->mutex);
        if (++d->report.frames == 2)
            d->report.movingNs = g_get_monotonic_time() * kNsPerUs;
    }
    return GST_BASE_SINK_CLASS(instrument_kms_sink_parent_class)->render(base, buffer);
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange transition)
{
    InstrumentKmsSink* self = INSTRUMENT_KMS_SINK(element);
    if (transition == GST_STATE_CHANGE_PLAYING_TO_PAUSED || transition == GST_STATE_CHANGE_PAUSED_TO_READY) {
        // Drops after the last shown picture are read before the base class clears its count.
        const guint64 dropped = droppedByBase(self);
        const std::lock_guard<std::mutex> lock(self->d->mutex);
        if (dropped > self->d->report.dropped)
            self->d->report.dropped = dropped;
    }
    return GST_ELEMENT_CLASS(instrument_kms_sink_parent_class)->change_state(element, transition);
}

void finalize(GObject* object)
{
    InstrumentKmsSink* self = INSTRUMENT_KMS_SINK(object);
    gst_clear_buffer(&self->d->newest);
    delete self->d;
    G_OBJECT_CLASS(instrument_kms_sink_parent_class)->finalize(object);
}

void installProperties(GObjectClass* objectClass)
{
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    g_object_class_install_property(objectClass, PropDisplayRatio,
        g_param_spec_int(
            "display-ratio", "Display ratio", "Picture format of the display", G_MININT, G_MAXINT, 0, flags));
    g_object_class_install_property(objectClass, PropPictureLocation,
        g_param_spec_string("picture-location", "Picture location",
            "File that keeps the newest picture (PPM); the counts stand beside it (JSON)", kDefaultPicture,
            flags));
}

} // namespace

static void instrument_kms_sink_class_init(InstrumentKmsSinkClass* klass)
{
    GST_DEBUG_CATEGORY_INIT(kmsSinkDebug, "instrumentkmssink", 0, "Display");
    GObjectClass* objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    objectClass->finalize = finalize;
    installProperties(objectClass);
    GstElementClass* elementClass = GST_ELEMENT_CLASS(klass);
    elementClass->change_state = changeState;
    gst_element_class_add_static_pad_template(elementClass, &sinkTemplate);
    gst_element_class_set_static_metadata(elementClass, "Display", "Sink/Video",
        "Keeps the newest picture of the display as a file", "Tessary");
    GstBaseSinkClass* baseClass = GST_BASE_SINK_CLASS(klass);
    baseClass->start = start;
    baseClass->stop = stop;
    baseClass->render = render;
    baseClass->propose_allocation = proposeAllocation;
    GstVideoSinkClass* videoClass = GST_VIDEO_SINK_CLASS(klass);
    videoClass->set_info = setInfo;
    videoClass->show_frame = showFrame;
}

static void instrument_kms_sink_init(InstrumentKmsSink* self)
{
    self->d = new Private;
}

bool registerDisplay(GstPlugin* plugin)
{
    return gst_element_register(plugin, "kmssink", GST_RANK_SECONDARY, INSTRUMENT_TYPE_KMS_SINK) != FALSE;
}
