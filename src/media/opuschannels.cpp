// tsdemux (1.22, and 1.26 for more of them) ends the process when the PMT of any program of the stream describes Opus
// sound in channels that it does not know, and reads behind a descriptor that says nothing about them. Streams are
// not trusted: in this process the definition below stands in front of the library's, and finds no such descriptor.
#include "media/mpegts.h"

namespace {

constexpr guint8 opusExtension = 0x80; // descriptor_tag_extension, in the user's range

/// Of an Opus descriptor: no channel_config_code, or one between those of families 0 and 1 (0 to 8) and the explicit
/// ones (from 0x80).
bool saysNoKnownChannels(const GstMpegtsDescriptor& descriptor)
{
    if (descriptor.tag != GST_MTS_DESC_DVB_EXTENSION || descriptor.length < 1
        || descriptor.data[2] != opusExtension)
        return false;
    return descriptor.length < 2 || (descriptor.data[3] > 8 && descriptor.data[3] < 0x80);
}

} // namespace

/// The first one with that tag, null when there is none. (src/CMakeLists.txt has the linker ask for it.)
const GstMpegtsDescriptor* gst_mpegts_find_descriptor(GPtrArray* descriptors, guint8 tag)
{
    for (guint i = 0; descriptors && i < descriptors->len; ++i) {
        const auto* const descriptor =
            static_cast<const GstMpegtsDescriptor*>(g_ptr_array_index(descriptors, i));
        if (descriptor->tag == tag && !saysNoKnownChannels(*descriptor))
            return descriptor;
    }
    return nullptr;
}
