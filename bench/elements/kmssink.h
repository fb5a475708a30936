#pragma once

#include <gst/gst.h>
#include <gst/video/gstvideosink.h>

G_BEGIN_DECLS

/// "kmssink": the display. It takes what the kernel mode setting sink takes and honours clock and lateness;
/// instead of a screen it keeps the newest picture as a PPM file and the counts as a JSON file beside it.
/// Both are written five times a second at most, thirteen times while there is a file of this name with the
/// suffix ".watched", and at the stop. Properties: "display-ratio" (int, kept for
/// whoever asks), and "picture-location" (path of the PPM file; the JSON file has the same name with the
/// suffix ".json").
#define INSTRUMENT_TYPE_KMS_SINK (instrument_kms_sink_get_type())
G_DECLARE_FINAL_TYPE(InstrumentKmsSink, instrument_kms_sink, INSTRUMENT, KMS_SINK, GstVideoSink)

G_END_DECLS
