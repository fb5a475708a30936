#include "client/psi/mpegtslibrary.h"

#define GST_USE_UNSTABLE_API // the MPEG-TS library is marked so, but has kept its interface since 1.4
#include <gst/mpegts/mpegts.h>
#include <mutex>

namespace tessary::client {

void initialiseMpegTsLibrary()
{
    static std::once_flag initialised;
    std::call_once(initialised, [] {
        gst_init(nullptr, nullptr);
        gst_mpegts_initialize();
    });
}

} // namespace tessary::client
