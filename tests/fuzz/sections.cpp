// The section slots of gstImpl and the getters behind them: sections of any bytes.
//
// Input: sections: kind (1 byte), length (2), the bytes. Kind, modulo 8: 0 PAT, 1 PMT, 2 NIT, 3 SDT, each
// with its table_id, section_length and CRC_32 made right; 4 to 7 the same tables' PIDs with the bytes as
// they stand. Kind 0x80: the tables are read in between; kind 0x40: they are emptied.
#include "kit/sections.h"
#include "media/gstimpl.h"
#include "support/gstreamer.h"
#include "support/input.h"
#include "support/quiet.h"

#include <array>

namespace {

struct Table
{
    guint8 id;
    guint16 pid;
    GstMpegtsSectionType type;
    void (gstImpl::*slot)(GstMpegtsSection*);
};

const std::array<Table, 4> tables{{
    {0x00, 0x0000, GST_MPEGTS_SECTION_PAT, &gstImpl::newPatSectionReceived},
    {0x02, 0x0100, GST_MPEGTS_SECTION_PMT, &gstImpl::newPmtSectionReceived},
    {0x40, 0x0010, GST_MPEGTS_SECTION_NIT, &gstImpl::newNitSectionReceived},
    {0x42, 0x0011, GST_MPEGTS_SECTION_SDT, &gstImpl::newSdtSectionReceived},
}};

constexpr std::size_t longestSection = 4096;
constexpr std::size_t longestPsiSection = 1024;

/// As the bus loop hands sections on: by the library's type and the table_id.
void deliver(gstImpl& impl, const std::vector<std::uint8_t>& bytes, const Table& table)
{
    if (bytes.size() < 4)
        return; // the library looks for a CRC_32 in what it is given; a stream's parsers give no less
    auto* copy = static_cast<guint8*>(g_memdup2(bytes.data(), bytes.size()));
    GstMpegtsSection* section = gst_mpegts_section_new(table.pid, copy, bytes.size());
    if (section == nullptr)
        return;
    for (const Table& handled : tables) {
        if (GST_MPEGTS_SECTION_TYPE(section) == handled.type && section->table_id == handled.id) {
            (impl.*handled.slot)(section);
            return;
        }
    }
    gst_mpegts_section_unref(section);
}

void readTables(gstImpl& impl)
{
    FUZZ_REQUIRE(impl.getPAT() != nullptr && impl.getSDT() != nullptr && impl.getNIT() != nullptr);
    FUZZ_REQUIRE(impl.getPAT()->size() <= longestSection);
    if (const std::vector<std::uint8_t>* pmt = impl.getPMT())
        FUZZ_REQUIRE(pmt->size() >= 12 && pmt->size() <= longestSection);
    const int programs = impl.getTotalNumberOfProgramsFound();
    FUZZ_REQUIRE(programs >= 0);
    for (const int index : {-1, 0, programs - 1, programs, 1 << 30}) {
        const int number = impl.getProgramNumber(index);
        FUZZ_REQUIRE(number >= 0 && number <= 0xFFFF);
        FUZZ_REQUIRE(number == 0 || index >= 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments)
{
    startQuietly();
    prepareGStreamer(*argumentCount, *arguments);
    loadElements();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    static gstImpl& impl = *new gstImpl(gst_bin_new("my_bin")); // ends with the process
    Input input(bytes, size);
    while (!input.empty()) {
        const unsigned kind = input.byte();
        const Table& table = tables[kind & 3U];
        const bool sound = (kind & 4U) == 0;
        const std::size_t longest = table.id >= 0x40 || !sound ? longestSection : longestPsiSection;
        std::vector<std::uint8_t> section = input.bytes(input.number(2) % (longest - 3));
        if (sound) {
            section.resize(std::max<std::size_t>(section.size(), 1));
            section[0] = table.id;
            section = tessary::test::soundSection(section);
        }
        deliver(impl, section, table);
        if (kind & 0x80U)
            readTables(impl);
        if (kind & 0x40U)
            impl.clearPIDFilter();
    }
    readTables(impl);
    impl.clearPIDFilter();
    return 0;
}
