#include "client/psi/tables.h"

#include "client/psi/descriptors.h"
#include "client/psi/mpegtslibrary.h"
#include "client/psi/sectionloops.h"

#define GST_USE_UNSTABLE_API // the MPEG-TS library is marked so, but has kept its interface since 1.4
#include <gst/mpegts/mpegts.h>
#include <memory>

namespace tessary::client {

namespace {

constexpr std::uint8_t patTableId = 0x00;
constexpr std::uint8_t pmtTableId = 0x02;
constexpr std::uint8_t nitActualTableId = 0x40;
constexpr std::uint8_t nitOtherTableId = 0x41;
constexpr std::uint8_t sdtActualTableId = 0x42;
constexpr std::uint8_t sdtOtherTableId = 0x46;

// The library tells tables apart by PID as well. A PMT may be on any PID, so a free one is named for it.
constexpr guint16 patPid = 0x0000;
constexpr guint16 nitPid = 0x0010;
constexpr guint16 sdtPid = 0x0011;
constexpr guint16 pmtPid = 0x0100;

struct SectionRelease
{
    void operator()(GstMpegtsSection* section) const { gst_mpegts_section_unref(section); }
};
using SectionHandle = std::unique_ptr<GstMpegtsSection, SectionRelease>;

/// The library's own object for a section with a right CRC_32, or null. The library takes a copy of the
/// bytes.
SectionHandle parse(const Section& section, guint16 pid)
{
    initialiseMpegTsLibrary();
    if (!section.crcCorrect || !loopsFit(section))
        return nullptr;
    auto* copy = static_cast<guint8*>(g_memdup2(section.bytes.data(), section.bytes.size()));
    return SectionHandle(gst_mpegts_section_new(pid, copy, section.bytes.size()));
}

bool isTable(const Section& section, std::uint8_t tableId)
{
    return !section.bytes.empty() && section.tableId() == tableId;
}

} // namespace

std::optional<ProgramAssociation> decodePat(const Section& section)
{
    const SectionHandle handle = isTable(section, patTableId) ? parse(section, patPid) : nullptr;
    GPtrArray* programs = handle != nullptr ? gst_mpegts_section_get_pat(handle.get()) : nullptr;
    if (programs == nullptr)
        return std::nullopt;
    ProgramAssociation pat;
    pat.transportStreamId = section.tableIdExtension();
    for (guint i = 0; i < programs->len; ++i) {
        const auto* program = static_cast<const GstMpegtsPatProgram*>(g_ptr_array_index(programs, i));
        pat.programs.push_back({program->program_number, program->network_or_program_map_PID});
    }
    g_ptr_array_unref(programs);
    return pat;
}

std::optional<ProgramMap> decodePmt(const Section& section)
{
    const SectionHandle handle = isTable(section, pmtTableId) ? parse(section, pmtPid) : nullptr;
    const GstMpegtsPMT* table = handle != nullptr ? gst_mpegts_section_get_pmt(handle.get()) : nullptr;
    if (table == nullptr)
        return std::nullopt;
    ProgramMap pmt;
    pmt.programNumber = table->program_number;
    pmt.pcrPid = table->pcr_pid;
    pmt.descriptors = copyDescriptors(table->descriptors);
    for (guint i = 0; i < table->streams->len; ++i) {
        const auto* stream = static_cast<const GstMpegtsPMTStream*>(g_ptr_array_index(table->streams, i));
        pmt.streams.push_back({stream->stream_type, stream->pid, copyDescriptors(stream->descriptors)});
    }
    return pmt;
}

std::optional<NetworkInformation> decodeNit(const Section& section)
{
    const bool isNit = isTable(section, nitActualTableId) || isTable(section, nitOtherTableId);
    const SectionHandle handle = isNit ? parse(section, nitPid) : nullptr;
    const GstMpegtsNIT* table = handle != nullptr ? gst_mpegts_section_get_nit(handle.get()) : nullptr;
    if (table == nullptr)
        return std::nullopt;
    NetworkInformation nit;
    nit.networkId = section.tableIdExtension();
    nit.networkName = networkName(table->descriptors, nit.networkId);
    for (guint i = 0; i < table->streams->len; ++i) {
        const auto* stream = static_cast<const GstMpegtsNITStream*>(g_ptr_array_index(table->streams, i));
        nit.transportStreams.push_back({stream->transport_stream_id, stream->original_network_id,
            listedServices(stream->descriptors), copyDescriptors(stream->descriptors)});
    }
    return nit;
}

std::optional<ServiceDescription> decodeSdt(const Section& section)
{
    const bool isSdt = isTable(section, sdtActualTableId) || isTable(section, sdtOtherTableId);
    const SectionHandle handle = isSdt ? parse(section, sdtPid) : nullptr;
    const GstMpegtsSDT* table = handle != nullptr ? gst_mpegts_section_get_sdt(handle.get()) : nullptr;
    if (table == nullptr)
        return std::nullopt;
    ServiceDescription sdt;
    sdt.transportStreamId = section.tableIdExtension();
    sdt.originalNetworkId = table->original_network_id;
    for (guint i = 0; i < table->services->len; ++i) {
        const auto* entry = static_cast<const GstMpegtsSDTService*>(g_ptr_array_index(table->services, i));
        ServiceDescription::Service service;
        service.id = entry->service_id;
        service.runningStatus = static_cast<std::uint8_t>(entry->running_status);
        service.scrambled = entry->free_CA_mode != FALSE;
        service.eitSchedule = entry->EIT_schedule_flag != FALSE;
        service.eitPresentFollowing = entry->EIT_present_following_flag != FALSE;
        readServiceDescriptor(entry->descriptors, sdt.originalNetworkId, service);
        sdt.services.push_back(std::move(service));
    }
    return sdt;
}

} // namespace tessary::client
