#include "client/psi/sections.h"

#include "client/psi/crc32.h"

#include <algorithm>

namespace tessary::client {

namespace {

constexpr std::size_t headerSize = 3; // table_id and the two bytes with section_length
constexpr std::size_t shortestLongForm = 3 + 5 + 4; // header, the long form's fields, CRC_32
constexpr std::size_t longestSection = 4096;

std::string hexByte(std::uint8_t value)
{
    static constexpr char digits[] = "0123456789abcdef";
    return {'0', 'x', digits[value >> 4U], digits[value & 0x0FU]};
}

std::string whyNoSection(const Bytes& chain, std::size_t offset)
{
    const std::size_t left = chain.size() - offset;
    const std::string where = " at byte " + std::to_string(offset);
    if (left < headerSize)
        return "section header cut short" + where + ": " + std::to_string(left) + " of 3 bytes";
    const std::size_t size = sectionSize(chain, offset);
    if ((chain[offset + 1] & 0x80U) == 0)
        return "no section" + where + ": table_id " + hexByte(chain[offset])
            + " without section_syntax_indicator";
    if (size < shortestLongForm || size > longestSection)
        return "no section" + where + ": " + std::to_string(size) + " bytes, allowed are 12 to 4096";
    if (size > left)
        return "section cut short" + where + ": " + std::to_string(left) + " of " + std::to_string(size)
            + " bytes";
    return {};
}

} // namespace

bool SplitResult::whole() const
{
    return rest.empty()
        && std::all_of(sections.begin(), sections.end(), [](const Section& s) { return s.crcCorrect; });
}

std::size_t sectionSize(const Bytes& chain, std::size_t offset)
{
    if (offset + headerSize > chain.size())
        return 0;
    return headerSize + ((chain[offset + 1] & 0x0FU) << 8U | chain[offset + 2]);
}

SplitResult splitSections(const Bytes& chain)
{
    SplitResult result;
    std::size_t offset = 0;
    while (offset < chain.size()) {
        result.problem = whyNoSection(chain, offset);
        if (!result.problem.empty())
            break;
        const std::size_t size = sectionSize(chain, offset);
        const auto begin = chain.begin() + static_cast<std::ptrdiff_t>(offset);
        Section section{Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)), false};
        section.crcCorrect = crc32Mpeg(section.bytes.data(), section.bytes.size()) == 0;
        result.sections.push_back(std::move(section));
        offset += size;
    }
    result.rest.assign(chain.begin() + static_cast<std::ptrdiff_t>(offset), chain.end());
    return result;
}

} // namespace tessary::client
