#pragma once

#include <gst/gst.h>

/// Registers the display, "kmssink", as an element of the plug-in: the virtual instrument's, which keeps a picture file, or the
/// board's, which is a screen. False when that can not be done.
bool registerDisplay(GstPlugin* plugin);
