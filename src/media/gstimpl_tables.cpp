// The PSI tables: the bus thread writes them through the slots, the getters hand copies to the main thread.
#include "media/gstimpl.h"

#include <algorithm>
#include <optional>

namespace {

/// What is kept of an SDT that grows: 64 times the largest there can be, and 24 minutes of the controller's
/// line. A stream must not fill the memory.
constexpr std::size_t sdtBytesKept = 16 * 1024 * 1024;

/// The bytes of a section where they stand. Streams repeat their sections all the time: only what is stored
/// is copied.
class SectionBytes
{
public:
    explicit SectionBytes(GstMpegtsSection* section)
        : m_bytes(gst_mpegts_section_get_data(section))
        , m_first(static_cast<const std::uint8_t*>(g_bytes_get_data(m_bytes.get(), &m_size)))
    {
    }

    std::size_t size() const { return m_size; }
    const std::uint8_t* begin() const { return m_first; }
    const std::uint8_t* end() const { return m_first + m_size; }
    std::vector<std::uint8_t> copy() const { return {begin(), end()}; }

private:
    Owned<GBytes> m_bytes;
    gsize m_size = 0;
    const std::uint8_t* m_first;
};

/// Numbers of all entries, 0 included; nothing when the section is no sound PAT.
std::optional<std::vector<std::uint32_t>> entriesOfPat(GstMpegtsSection* section)
{
    const Owned<GPtrArray> entries(gst_mpegts_section_get_pat(section));
    if (!entries)
        return std::nullopt;
    std::vector<std::uint32_t> numbers;
    for (guint i = 0; i < entries->len; ++i)
        numbers.push_back(
            static_cast<const GstMpegtsPatProgram*>(g_ptr_array_index(entries.get(), i))->program_number);
    return numbers;
}

/// Ids of all services, 0 included; none when the section is no sound SDT.
std::vector<std::uint32_t> servicesOfSdt(GstMpegtsSection* section)
{
    std::vector<std::uint32_t> services;
    const GstMpegtsSDT* sdt = gst_mpegts_section_get_sdt(section);
    for (guint i = 0; sdt && i < sdt->services->len; ++i)
        services.push_back(
            static_cast<const GstMpegtsSDTService*>(g_ptr_array_index(sdt->services, i))->service_id);
    return services;
}

/// 0 names no program: in a PAT it stands for the NIT's PID.
std::vector<std::uint32_t> withoutZero(std::vector<std::uint32_t> numbers)
{
    numbers.erase(std::remove(numbers.begin(), numbers.end(), 0U), numbers.end());
    return numbers;
}

} // namespace

// A slot stores first and prints last: standard output may hold the bus thread up while the object is
// deleted.

void gstImpl::newPatSectionReceived(GstMpegtsSection* section)
{
    const Owned<GstMpegtsSection> reference(section); // the one that the signal carries
    const SectionBytes bytes(section);
    {
        const MutexLock lock(m_tablesMutex);
        if (m_patBytes.size() == bytes.size()) // a change is known by its length alone: this is meant
            return;
    }
    const std::optional<std::vector<std::uint32_t>> entries = entriesOfPat(section);
    {
        const MutexLock lock(m_tablesMutex);
        m_patBytes.assign(bytes.begin(), bytes.end());
        m_patPrograms = entries ? withoutZero(*entries) : std::vector<std::uint32_t>();
    }
    if (entries)
        g_print("%d programs : \n", static_cast<int>(entries->size()));
    g_print("new PAT received\n");
}

void gstImpl::newSdtSectionReceived(GstMpegtsSection* section)
{
    const Owned<GstMpegtsSection> reference(section); // the one that the signal carries
    const SectionBytes bytes(section);
    {
        const MutexLock lock(m_tablesMutex);
        if (m_sdtBytes.size() == bytes.size())
            return;
    }
    const std::vector<std::uint32_t> services = servicesOfSdt(section);
    {
        const MutexLock lock(m_tablesMutex);
        // Appended without emptying: this is meant. Two sections of different lengths let the list grow with
        // each repetition until the tables are cleared; the controller takes what it needs by section_number.
        if (m_sdtBytes.size() + bytes.size() <= sdtBytesKept)
            m_sdtBytes.insert(m_sdtBytes.end(), bytes.begin(), bytes.end());
        m_sdtServices = withoutZero(services);
    }
    for (std::size_t i = 0; i < services.size(); ++i)
        g_print("Service %d : Program number(SID)= %d\n", static_cast<int>(i), static_cast<int>(services[i]));
    g_print("new SDT received\n");
}

void gstImpl::newPmtSectionReceived(GstMpegtsSection* section)
{
    const Owned<GstMpegtsSection> reference(section); // the one that the signal carries
    const GstMpegtsPMT* pmt = gst_mpegts_section_get_pmt(section);
    if (!pmt)
        return;
    const std::uint16_t number = pmt->program_number;
    {
        const MutexLock lock(m_tablesMutex);
        const auto same = [number](const PMT_vector_Struct& known) { return known.program_number == number; };
        // The first PMT is kept until the next scan.
        if (std::any_of(m_pmtSections.begin(), m_pmtSections.end(), same))
            return;
        m_pmtSections.push_back({number, SectionBytes(section).copy()});
    }
    g_print("new PMT received program_number :%d\r\n", static_cast<int>(number));
}

void gstImpl::newNitSectionReceived(GstMpegtsSection* section)
{
    const Owned<GstMpegtsSection> reference(section); // the one that the signal carries
    const std::uint16_t number = section->section_number;
    {
        const MutexLock lock(m_tablesMutex);
        const auto same = [number](const NIT_vector_Struct& known) { return known.section_number == number; };
        if (std::any_of(m_nitSections.begin(), m_nitSections.end(), same))
            return;
        m_nitSections.push_back({number, SectionBytes(section).copy()});
    }
    g_print("new NIT received (section: %d)\r\n", static_cast<int>(number));
}

std::vector<std::uint8_t>* gstImpl::getPAT()
{
    const MutexLock lock(m_tablesMutex);
    m_patSnapshot = m_patBytes;
    return &m_patSnapshot;
}

std::vector<std::uint8_t>* gstImpl::getSDT()
{
    m_sdtSnapshot.clear();
    appendSDT(m_sdtSnapshot);
    return &m_sdtSnapshot;
}

void gstImpl::appendSDT(std::vector<std::uint8_t>& bytes)
{
    const MutexLock lock(m_tablesMutex);
    bytes.insert(bytes.end(), m_sdtBytes.begin(), m_sdtBytes.end());
}

bool gstImpl::hasSDT()
{
    const MutexLock lock(m_tablesMutex);
    return !m_sdtBytes.empty();
}

std::vector<std::uint8_t>* gstImpl::getPMT()
{
    const MutexLock lock(m_tablesMutex);
    const auto chosen = [this](const PMT_vector_Struct& known) {
        return known.program_number == m_programNumber;
    };
    const auto found = std::find_if(m_pmtSections.begin(), m_pmtSections.end(), chosen);
    if (found == m_pmtSections.end())
        return nullptr;
    m_pmtSnapshot = found->data;
    return &m_pmtSnapshot;
}

std::vector<std::uint8_t>* gstImpl::getNIT()
{
    const MutexLock lock(m_tablesMutex);
    m_nitBytes.clear();
    // Only as many numbers are looked for as there are sections: a NIT whose first section was missed is left
    // out, on purpose, rather than sent with a gap.
    for (std::size_t number = 0; number < m_nitSections.size(); ++number) {
        for (const NIT_vector_Struct& section : m_nitSections) {
            if (section.section_number == number)
                m_nitBytes.insert(m_nitBytes.end(), section.data.begin(), section.data.end());
        }
    }
    return &m_nitBytes;
}

int gstImpl::getTotalNumberOfProgramsFound()
{
    const MutexLock lock(m_tablesMutex);
    return static_cast<int>(m_patPrograms.size());
}

int gstImpl::getProgramNumber(int index)
{
    const MutexLock lock(m_tablesMutex);
    const std::vector<std::uint32_t>& numbers = m_sdtServices.empty() ? m_patPrograms : m_sdtServices;
    if (index < 0 || static_cast<std::size_t>(index) >= numbers.size())
        return 0;
    return static_cast<int>(numbers[static_cast<std::size_t>(index)]);
}

void gstImpl::clearPIDFilter()
{
    const MutexLock lock(m_tablesMutex);
    m_sdtBytes.clear();
    m_sdtServices.clear();
    m_nitSections.clear();
    m_patPrograms.clear();
    m_patBytes.clear();
    m_pmtSections.clear();
}
