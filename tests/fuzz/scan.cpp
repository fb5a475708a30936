// A received stream on its way through tsparse into the tables, as in a scan, or through tsdemux, as in
// playing: sections of any table on any PID.
//
// Input: form (1 byte), of which bit 1 takes tsdemux. Bit 0 clear: transport stream packets as they stand.
// Bit 0 set: sections: PID (2), flags (1), length (2), the bytes. Flag 1: table_id 0x00, 0x02, 0x40, 0x42,
// 0x4E, 0x70 or 0x73 by the flags' upper bits, else as it stands. Each section gets its section_length and
// CRC_32 and its transport stream packets.
#include "kit/packets.h"
#include "kit/sections.h"
#include "media/demuxguard.h"
#include "media/gstimpl.h"
#include "support/gstreamer.h"
#include "support/input.h"
#include "support/quiet.h"

#include <array>
#include <map>
#include <sanitizer/lsan_interface.h>

namespace {

using namespace tessary::test;

constexpr std::size_t longestSection = 4096;

gstImpl* tables = nullptr;

/// As the bus loop hands sections on.
GstBusSyncReply takeMessage(GstBus*, GstMessage* message, gpointer)
{
    GstMpegtsSection* section = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ELEMENT
        ? gst_message_parse_mpegts_section(message)
        : nullptr;
    gst_message_unref(message);
    if (section == nullptr)
        return GST_BUS_DROP;
    const GstMpegtsSectionType type = GST_MPEGTS_SECTION_TYPE(section);
    if (type == GST_MPEGTS_SECTION_PAT && section->table_id == 0x00)
        tables->newPatSectionReceived(section);
    else if (type == GST_MPEGTS_SECTION_PMT && section->table_id == 0x02)
        tables->newPmtSectionReceived(section);
    else if (type == GST_MPEGTS_SECTION_NIT && section->table_id == 0x40)
        tables->newNitSectionReceived(section);
    else if (type == GST_MPEGTS_SECTION_SDT && section->table_id == 0x42)
        tables->newSdtSectionReceived(section);
    else
        gst_mpegts_section_unref(section);
    return GST_BUS_DROP;
}

/// The element between a pad that is pushed to and, for tsparse, one that drops everything. (The pads of
/// tsdemux come with the streams, and stay without a peer.)
class Parser
{
public:
    explicit Parser(const char* factory)
        : m_element(gst_element_factory_make(factory, nullptr))
        , m_bus(gst_bus_new())
        , m_source(gst_pad_new("out", GST_PAD_SRC))
        , m_sink(gst_pad_new("in", GST_PAD_SINK))
    {
        gst_object_ref_sink(m_element);
        gst_bus_set_sync_handler(m_bus, takeMessage, nullptr, nullptr);
        gst_element_set_bus(m_element, m_bus);
        if (std::string(factory) == "tsdemux")
            DemuxGuard::watch(m_element);
        gst_pad_set_chain_function(m_sink, drop);
        link(m_source, "sink", true);
        link(m_sink, "src", false);
        gst_element_set_state(m_element, GST_STATE_PLAYING);
        gst_pad_push_event(m_source, gst_event_new_stream_start("fuzz"));
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_BYTES);
        gst_pad_push_event(m_source, gst_event_new_segment(&segment));
    }

    ~Parser()
    {
        gst_pad_push_event(m_source, gst_event_new_eos());
        gst_element_set_state(m_element, GST_STATE_NULL);
        gst_pad_set_active(m_source, FALSE);
        gst_pad_set_active(m_sink, FALSE);
        gst_element_set_bus(m_element, nullptr);
        gst_object_unref(m_element);
        gst_object_unref(m_source);
        gst_object_unref(m_sink);
        gst_object_unref(m_bus);
    }

    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    void push(const Bytes& stream)
    {
        gst_pad_push(m_source, gst_buffer_new_memdup(stream.data(), stream.size()));
    }

private:
    static GstFlowReturn drop(GstPad*, GstObject*, GstBuffer* buffer)
    {
        gst_buffer_unref(buffer);
        return GST_FLOW_OK;
    }

    void link(GstPad* pad, const char* name, bool pushing)
    {
        gst_pad_set_active(pad, TRUE);
        GstPad* other = gst_element_get_static_pad(m_element, name);
        if (other == nullptr)
            return;
        FUZZ_REQUIRE((pushing ? gst_pad_link(pad, other) : gst_pad_link(other, pad)) == GST_PAD_LINK_OK);
        gst_object_unref(other);
    }

    GstElement* m_element;
    GstBus* m_bus;
    GstPad* m_source;
    GstPad* m_sink;
};

Bytes madeSound(Bytes section, unsigned flags)
{
    static constexpr std::array<std::uint8_t, 8> ids{0x00, 0x02, 0x40, 0x42, 0x4E, 0x70, 0x73, 0x46};
    section.resize(std::max<std::size_t>(section.size(), 1));
    if (flags & 1U)
        section[0] = ids[flags >> 5 & 7U];
    return soundSection(section);
}

Bytes streamOfSections(Input& input)
{
    Bytes stream = nullPackets(10); // so that the parser finds its step
    std::map<unsigned, unsigned> counters;
    while (!input.empty()) {
        const auto pid = static_cast<unsigned>(input.number(2) & 0x1FFFU);
        const unsigned flags = input.byte();
        const Bytes section = madeSound(input.bytes(input.number(2) % (longestSection - 4)), flags);
        append(stream, packetsOf(pid, section, counters[pid]));
    }
    return stream;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments)
{
    startQuietly();
    prepareGStreamer(*argumentCount, *arguments);
    loadElements();
    tables = new gstImpl(gst_bin_new("my_bin")); // ends with the process
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    const unsigned form = input.byte();
    const Bytes stream = form & 1U ? streamOfSections(input) : input.rest();
    const bool playing = (form & 2U) != 0;
    if (playing)
        __lsan_disable(); // tsdemux (1.22) loses a parser's stream when a PMT comes on the PAT's PID
    if (!stream.empty()) {
        Parser parser(playing ? "tsdemux" : "tsparse");
        parser.push(stream);
    }
    if (playing)
        __lsan_enable();
    FUZZ_REQUIRE(tables->getPAT()->size() <= longestSection);
    tables->clearPIDFilter();
    return 0;
}
