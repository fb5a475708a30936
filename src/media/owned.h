#pragma once

#include "media/mpegts.h"

#include <gst/gst.h>
#include <memory>

/// Gives back what GLib's and GStreamer's functions hand over ("transfer full" in their documents): memory, or
/// one reference.
struct GiveBack
{
    void operator()(gchar* text) const { g_free(text); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
    void operator()(GPtrArray* array) const { g_ptr_array_unref(array); }
    void operator()(GstBus* bus) const { gst_object_unref(bus); }
    void operator()(GstElement* element) const { gst_object_unref(element); }
    void operator()(GstPad* pad) const { gst_object_unref(pad); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstEvent* event) const { gst_event_unref(event); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GstMpegtsSection* section) const { gst_mpegts_section_unref(section); }
    void operator()(GstQuery* query) const { gst_query_unref(query); }
};

/// Owns one reference, or the memory; null owns nothing. A plain pointer in this tree is borrowed.
template <typename T> using Owned = std::unique_ptr<T, GiveBack>;
