// The bare elements of a scan with the same settings, and a bus loop that looks at each section's kind:
// scan-elements PROGRAMS file|udp PIPELINE...
#include "kit/gstreamer.h"
#include "sectionclock.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr GstClockTime longestNs = 60 * GST_SECOND;

SectionClock sections;

void take(GstMessage* message)
{
    GstMpegtsSection* section = gst_message_parse_mpegts_section(message);
    if (!section)
        return;
    if (section->section_type == GST_MPEGTS_SECTION_PAT)
        sections.pat();
    else if (section->section_type == GST_MPEGTS_SECTION_SDT && section->table_id == 0x42)
        sections.sdt();
    else if (section->section_type == GST_MPEGTS_SECTION_PMT)
        sections.pmt(section->subtable_extension);
    gst_mpegts_section_unref(section);
}

/// False when the pipeline has ended or failed.
bool handle(GstMessage* message)
{
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ELEMENT:
        take(message);
        return true;
    case GST_MESSAGE_EOS:
        sections.endOfStream();
        return false;
    case GST_MESSAGE_ERROR:
        std::fputs("scan-elements: the pipeline failed\n", stderr);
        return false;
    default:
        return true;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fputs("usage: scan-elements PROGRAMS file|udp PIPELINE...\n", stderr);
        return 2;
    }
    const bool file = std::strcmp(argv[2], "file") == 0;
    std::string description;
    for (int i = 3; i < argc; ++i)
        description += std::string(argv[i]) + " ";
    tessary::test::startGStreamer();
    GError* error = nullptr;
    if (GstElement* warm = gst_parse_launch(description.c_str(), &error)) // loads the plug-ins
        gst_object_unref(warm);
    if (error) {
        std::fprintf(stderr, "scan-elements: %s\n", error->message);
        return 1;
    }
    sections.begin(static_cast<unsigned>(std::atoi(argv[1])));
    GstElement* pipeline = gst_parse_launch(description.c_str(), nullptr);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    for (bool goOn = true; goOn && (file || !sections.complete());) {
        GstMessage* message = gst_bus_timed_pop(bus, longestNs);
        goOn = message && handle(message);
        if (message)
            gst_message_unref(message);
    }
    sections.print();
    std::fflush(stdout);
    _Exit(sections.complete() ? 0 : 1);
}
