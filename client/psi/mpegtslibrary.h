#pragma once

namespace tessary::client {

/// Initialises GStreamer and its MPEG-TS library, once. Whoever calls a function of that library calls this
/// before.
void initialiseMpegTsLibrary();

} // namespace tessary::client
