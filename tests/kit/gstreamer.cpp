#include "kit/gstreamer.h"

namespace tessary::test {

namespace {

std::uint16_t pidOf(std::uint8_t tableId)
{
    switch (tableId) {
    case 0x00:
        return 0x0000;
    case 0x40:
    case 0x41:
        return 0x0010;
    case 0x42:
    case 0x46:
        return 0x0011;
    case 0x4E:
        return 0x0012;
    default:
        return 0x1000;
    }
}

} // namespace

GstMpegtsSection* delivered(const Bytes& section)
{
    auto* copy = static_cast<guint8*>(g_memdup2(section.data(), section.size()));
    return gst_mpegts_section_new(pidOf(section.front()), copy, section.size());
}

void postSection(GstElement* pipeline, const Bytes& section)
{
    GstMpegtsSection* sent = delivered(section);
    gst_element_post_message(pipeline, gst_message_new_mpegts_section(GST_OBJECT(pipeline), sent));
    gst_mpegts_section_unref(sent);
}

} // namespace tessary::test
