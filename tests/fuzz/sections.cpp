// The section slots of gstImpl and the getters behind them: sections of any bytes.
//
// Input: sections: kind (1 byte), length (2), the bytes. Kind, modulo 8: 0 PAT, 1 PMT, 2 NIT, 3 SDT, each
// with its table_id, section_length and CRC_32 made right; 4 to 7 the same tables' PIDs with the bytes as
// they stand. Kind 0x80: the tables are read in between; kind 0x40: they are emptied.
#include "client/crc32.h"
#include "media/gstimpl.h"
#include "support/containment.h"
#include "support/gstreamer.h"
#include "support/input.h"

#include <array>
#include <QCoreApplication>

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

void silent(QtMsgType, const QMessageLogContext&, const QString&) { }

/// Header and CRC_32 of a long-form section around what is there.
void makeSound(std::vector<std::uint8_t>& section, const Table& table)
{
    section.resize(std::max<std::size_t>(section.size() + 4, 12));
    const std::size_t length = section.size() - 3;
    section[0] = table.id;
    section[1] = static_cast<std::uint8_t>(0xB0U | length >> 8);
    section[2] = static_cast<std::uint8_t>(length);
    const std::uint32_t crc = tessary::client::crc32Mpeg(section.data(), section.size() - 4);
    for (std::size_t i = 0; i < 4; ++i)
        section[section.size() - 4 + i] = static_cast<std::uint8_t>(crc >> (24 - 8 * i));
}

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
    requireContainment();
    qInstallMessageHandler(silent);
    prepareGStreamer();
    [[maybe_unused]] static const auto* application =
        new QCoreApplication(*argumentCount, *arguments); // ends with the process
    gst_init(nullptr, nullptr);
    gst_mpegts_initialize();
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
        if (sound)
            makeSound(section, table);
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
