#pragma once

/// Makes the application object, and has GStreamer start without registry on disk and search for plug-ins.
void prepareGStreamer(int& argumentCount, char** arguments);

/// Starts GStreamer, unless the daemon's code has, and loads the few plug-ins that the pipelines need, and the stand-ins for the platform's
/// elements; what elements print goes nowhere.
void loadElements();
