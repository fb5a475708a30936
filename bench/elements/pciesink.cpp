#include "pciesink.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

enum Property { PropLocation = 1 };
constexpr const char* kDefaultLocation = "/run/bench/fpga-out.ts";

GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);

struct Private
{
    std::string location = kDefaultLocation; // guarded by the object lock
    int fd = -1;
};

} // namespace

struct _InstrumentPcieSink
{
    GstBaseSink parent;
    Private* d;
};

G_DEFINE_TYPE(InstrumentPcieSink, instrument_pcie_sink, GST_TYPE_BASE_SINK)

namespace {

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    if (id != PropLocation) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    const char* text = g_value_get_string(value);
    GST_OBJECT_LOCK(object);
    INSTRUMENT_PCIE_SINK(object)->d->location = text != nullptr ? text : "";
    GST_OBJECT_UNLOCK(object);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    if (id != PropLocation) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    GST_OBJECT_LOCK(object);
    g_value_set_string(value, INSTRUMENT_PCIE_SINK(object)->d->location.c_str());
    GST_OBJECT_UNLOCK(object);
}

gboolean start(GstBaseSink* base)
{
    InstrumentPcieSink* self = INSTRUMENT_PCIE_SINK(base);
    GST_OBJECT_LOCK(self);
    const std::string location = self->d->location;
    GST_OBJECT_UNLOCK(self);
    self->d->fd = ::open(location.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (self->d->fd < 0) {
        const int cause = errno;
        GST_ELEMENT_ERROR(self, RESOURCE, OPEN_WRITE,
            ("Cannot write %s: %s. Make its folder, or set \"location\".", location.c_str(),
                g_strerror(cause)),
            (nullptr));
        return FALSE;
    }
    return TRUE;
}

gboolean stop(GstBaseSink* base)
{
    Private* d = INSTRUMENT_PCIE_SINK(base)->d;
    if (d->fd >= 0)
        ::close(d->fd);
    d->fd = -1;
    return TRUE;
}

// Written straight to the file, so that a reader finds every buffer that was rendered.
GstFlowReturn render(GstBaseSink* base, GstBuffer* buffer)
{
    InstrumentPcieSink* self = INSTRUMENT_PCIE_SINK(base);
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        GST_ELEMENT_ERROR(self, RESOURCE, READ, ("A buffer could not be read."), (nullptr));
        return GST_FLOW_ERROR;
    }
    int cause = 0;
    for (gsize written = 0; written < map.size && cause == 0;) {
        const ssize_t count = ::write(self->d->fd, map.data + written, map.size - written);
        if (count >= 0)
            written += static_cast<gsize>(count);
        else if (errno != EINTR)
            cause = errno;
    }
    gst_buffer_unmap(buffer, &map);
    if (cause == 0)
        return GST_FLOW_OK;
    GST_ELEMENT_ERROR(self, RESOURCE, WRITE,
        ("Writing the stream failed: %s. Free some space, or set \"location\".", g_strerror(cause)),
        (nullptr));
    return GST_FLOW_ERROR;
}

void finalize(GObject* object)
{
    delete INSTRUMENT_PCIE_SINK(object)->d;
    G_OBJECT_CLASS(instrument_pcie_sink_parent_class)->finalize(object);
}

} // namespace

static void instrument_pcie_sink_class_init(InstrumentPcieSinkClass* klass)
{
    GObjectClass* objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    objectClass->finalize = finalize;
    const auto flags =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);
    g_object_class_install_property(objectClass, PropLocation,
        g_param_spec_string(
            "location", "Location", "File that gets the stream for the FPGA", kDefaultLocation, flags));
    GstElementClass* elementClass = GST_ELEMENT_CLASS(klass);
    gst_element_class_add_static_pad_template(elementClass, &sinkTemplate);
    gst_element_class_set_static_metadata(elementClass, "FPGA stream sink", "Sink",
        "Writes the transport stream meant for the FPGA to a file", "Tessary");
    GstBaseSinkClass* baseClass = GST_BASE_SINK_CLASS(klass);
    baseClass->start = start;
    baseClass->stop = stop;
    baseClass->render = render;
}

static void instrument_pcie_sink_init(InstrumentPcieSink* self)
{
    self->d = new Private;
    gst_base_sink_set_sync(GST_BASE_SINK(self), FALSE);
}
