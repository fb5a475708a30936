// GStreamer's parsers look into every EIT (ETSI EN 300 468, 5.2.4) that a stream carries, for titles that the
// daemon does not use; and the library's EIT parser (1.22) believes the lengths in it, which lead out of the
// section. Streams are not trusted, so no EIT is looked into: in this process the definition below stands in
// front of the library's.
#include "media/mpegts.h"

/// Null, as for an EIT that does not parse. (src/CMakeLists.txt has the linker ask for it.)
const GstMpegtsEIT* gst_mpegts_section_get_eit(GstMpegtsSection*)
{
    return nullptr;
}
