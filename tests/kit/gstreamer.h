#pragma once

#include "kit/bytes.h"

#ifndef GST_USE_UNSTABLE_API
#define GST_USE_UNSTABLE_API // the MPEG-TS library says that it is, unless asked not to
#endif
#include <gst/gst.h>
#include <gst/mpegts/mpegts.h>

/// Sections as GStreamer's parsers deliver them.
namespace tessary::test {

/// GStreamer and its MPEG-TS library, ready; a second call does nothing.
inline void startGStreamer()
{
    gst_init(nullptr, nullptr);
    gst_mpegts_initialize();
}

/// The section from its table's own PID (a PMT's is 0x1000); the caller owns the reference.
GstMpegtsSection* delivered(const Bytes& section);

/// Posts the section on the bus of the pipeline, from the pipeline's name, as tsparse does.
void postSection(GstElement* pipeline, const Bytes& section);

} // namespace tessary::test
