#pragma once

/// Before the daemon's code initialises GStreamer: no registry on disk and no search for plug-ins.
void prepareGStreamer();

/// Behind gst_init(): loads the few plug-ins that the pipelines need, and the stand-ins for the platform's
/// elements; what elements print goes nowhere.
void loadElements();
