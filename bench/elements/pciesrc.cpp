#include "pciesrc.h"

#include "streamfile.h"
#include "streampace.h"

#include <cerrno>
#include <mutex>
#include <string>

GST_DEBUG_CATEGORY_STATIC(pcieSrcDebug);
#define GST_CAT_DEFAULT pcieSrcDebug

namespace {

enum Property { PropLocation = 1, PropBitrate, PropLoop };
constexpr const char* kDefaultLocation = "/run/bench/fpga-in.ts";
constexpr guint kDefaultBlockBytes = 18800; // one hundred packets
// A stream without any clock reference (tables only) has no pace of its own.
constexpr guint64 kBitRateWithoutPcr = 10000000;

GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/mpegts, systemstream=(boolean)true"));

struct Private
{
    std::string location = kDefaultLocation; // guarded by the object lock, like the two below
    guint64 bitRate = 0;
    bool loop = true;
    /// Guards the two below, also while a block is awaited: only setFlushing() goes without it.
    std::mutex streamMutex;
    StreamFile file;
    StreamPace pace;
};

} // namespace

struct _InstrumentPcieSrc
{
    GstPushSrc parent;
    Private* d;
};

G_DEFINE_TYPE(InstrumentPcieSrc, instrument_pcie_src, GST_TYPE_PUSH_SRC)

namespace {

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    Private* d = INSTRUMENT_PCIE_SRC(object)->d;
    GST_OBJECT_LOCK(object);
    switch (id) {
    case PropLocation: {
        const char* text = g_value_get_string(value);
        d->location = text != nullptr ? text : "";
        break;
    }
    case PropBitrate:
        d->bitRate = g_value_get_uint64(value);
        break;
    case PropLoop:
        d->loop = g_value_get_boolean(value) != FALSE;
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(object);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    Private* d = INSTRUMENT_PCIE_SRC(object)->d;
    GST_OBJECT_LOCK(object);
    switch (id) {
    case PropLocation:
        g_value_set_string(value, d->location.c_str());
        break;
    case PropBitrate:
        g_value_set_uint64(value, d->bitRate);
        break;
    case PropLoop:
        g_value_set_boolean(value, d->loop ? TRUE : FALSE);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(object);
}

gboolean start(GstBaseSrc* base)
{
    Private* d = INSTRUMENT_PCIE_SRC(base)->d;
    GST_OBJECT_LOCK(base);
    const std::string location = d->location;
    const bool loop = d->loop;
    GST_OBJECT_UNLOCK(base);
    const std::lock_guard<std::mutex> lock(d->streamMutex);
    d->file.setPlace(location, loop);
    d->pace.setBitRate(0);
    return TRUE;
}

gboolean stop(GstBaseSrc* base)
{
    Private* d = INSTRUMENT_PCIE_SRC(base)->d;
    const std::lock_guard<std::mutex> lock(d->streamMutex);
    d->file.close();
    return TRUE;
}

gboolean unlock(GstBaseSrc* base)
{
    INSTRUMENT_PCIE_SRC(base)->d->file.setFlushing(true);
    return TRUE;
}

gboolean unlockStop(GstBaseSrc* base)
{
    Private* d = INSTRUMENT_PCIE_SRC(base)->d;
    d->file.setFlushing(false);
    const std::lock_guard<std::mutex> lock(d->streamMutex);
    d->pace.restart(); // what was not delivered meanwhile is not made up for
    return TRUE;
}

gboolean isSeekable(GstBaseSrc*)
{
    return FALSE;
}

void choosePace(InstrumentPcieSrc* self)
{
    GST_OBJECT_LOCK(self);
    guint64 bitRate = self->d->bitRate;
    GST_OBJECT_UNLOCK(self);
    if (bitRate == 0)
        bitRate = self->d->file.tellBitRate();
    if (bitRate == 0)
        bitRate = kBitRateWithoutPcr;
    GST_INFO_OBJECT(self, "playing at %" G_GUINT64_FORMAT " bit/s", bitRate);
    self->d->pace.setBitRate(bitRate);
}

// As a capture driver does, each block is stamped with the time at which it came, whether or not the base
// class is asked to stamp: a demultiplexer needs a time of arrival to follow a stream whose clock references
// jump.
void stampArrival(InstrumentPcieSrc* self, GstBuffer* buffer)
{
    GstClock* clock = gst_element_get_clock(GST_ELEMENT(self));
    if (clock == nullptr)
        return;
    const GstClockTime now = gst_clock_get_time(clock);
    const GstClockTime base = gst_element_get_base_time(GST_ELEMENT(self));
    gst_object_unref(clock);
    if (GST_CLOCK_TIME_IS_VALID(base) && now >= base)
        GST_BUFFER_PTS(buffer) = now - base;
}

GstFlowReturn create(GstPushSrc* base, GstBuffer** output)
{
    InstrumentPcieSrc* self = INSTRUMENT_PCIE_SRC(base);
    Private* d = self->d;
    const std::lock_guard<std::mutex> lock(d->streamMutex);
    const guint blockBytes = gst_base_src_get_blocksize(GST_BASE_SRC(base));
    GstBuffer* buffer =
        gst_buffer_new_allocate(nullptr, blockBytes > 0 ? blockBytes : kDefaultBlockBytes, nullptr);
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_WRITE)) {
        gst_buffer_unref(buffer);
        return GST_FLOW_ERROR;
    }
    const StreamFile::Result result = d->file.read(map.data, map.size);
    const int readErrno = errno;
    gst_buffer_unmap(buffer, &map);
    bool delivered = result.status == StreamFile::Status::Data;
    if (delivered) {
        if (result.restarted && !d->file.isFifo())
            choosePace(self);
        if (result.restarted)
            GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
        gst_buffer_set_size(buffer, static_cast<gssize>(result.bytes));
        if (!d->file.isFifo())
            delivered = d->file.waitUntil(d->pace.due(result.bytes, g_get_monotonic_time()));
    }
    if (delivered) {
        stampArrival(self, buffer);
        *output = buffer;
        return GST_FLOW_OK;
    }
    gst_buffer_unref(buffer);
    if (result.status == StreamFile::Status::End)
        return GST_FLOW_EOS;
    if (result.status == StreamFile::Status::Error) {
        GST_ELEMENT_ERROR(self, RESOURCE, READ,
            ("Reading the stream failed: %s. Check the file at \"location\".", g_strerror(readErrno)),
            (nullptr));
        return GST_FLOW_ERROR;
    }
    return GST_FLOW_FLUSHING;
}

void finalize(GObject* object)
{
    delete INSTRUMENT_PCIE_SRC(object)->d;
    G_OBJECT_CLASS(instrument_pcie_src_parent_class)->finalize(object);
}

void installProperties(GObjectClass* objectClass)
{
    const auto flags =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);
    g_object_class_install_property(objectClass, PropLocation,
        g_param_spec_string(
            "location", "Location", "File or FIFO played as the FPGA's stream", kDefaultLocation, flags));
    g_object_class_install_property(objectClass, PropBitrate,
        g_param_spec_uint64("bitrate", "Bit rate",
            "Bit rate of a regular file in bit/s (0 = after its clock references)", 0, G_MAXUINT64 / 16, 0,
            flags));
    g_object_class_install_property(objectClass, PropLoop,
        g_param_spec_boolean("loop", "Loop", "Start a regular file again at its end", TRUE, flags));
}

} // namespace

static void instrument_pcie_src_class_init(InstrumentPcieSrcClass* klass)
{
    GST_DEBUG_CATEGORY_INIT(pcieSrcDebug, "pciesrc", 0, "FPGA stream source");
    GObjectClass* objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = setProperty;
    objectClass->get_property = getProperty;
    objectClass->finalize = finalize;
    installProperties(objectClass);
    GstElementClass* elementClass = GST_ELEMENT_CLASS(klass);
    gst_element_class_add_static_pad_template(elementClass, &srcTemplate);
    gst_element_class_set_static_metadata(elementClass, "FPGA stream source", "Source",
        "Plays a file or a FIFO as the transport stream that the FPGA delivers over PCIe", "Tessary");
    GstBaseSrcClass* baseClass = GST_BASE_SRC_CLASS(klass);
    baseClass->start = start;
    baseClass->stop = stop;
    baseClass->unlock = unlock;
    baseClass->unlock_stop = unlockStop;
    baseClass->is_seekable = isSeekable;
    GST_PUSH_SRC_CLASS(klass)->create = create;
}

static void instrument_pcie_src_init(InstrumentPcieSrc* self)
{
    self->d = new Private;
    gst_base_src_set_live(GST_BASE_SRC(self), TRUE);
    gst_base_src_set_format(GST_BASE_SRC(self), GST_FORMAT_TIME);
    gst_base_src_set_blocksize(GST_BASE_SRC(self), kDefaultBlockBytes);
}
