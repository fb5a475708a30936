#pragma once

// GStreamer's MPEG-TS library counts as unstable API and says so unless asked not to.
#ifndef GST_USE_UNSTABLE_API
#define GST_USE_UNSTABLE_API
#endif
#include <gst/gst.h>
#include <gst/mpegts/mpegts.h>
