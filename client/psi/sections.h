#pragma once

#include "client/psi/bytes.h"

#include <cstddef>
#include <string>
#include <vector>

namespace tessary::client {

/// One PSI/SI section as carried in the stream: table_id, section_length, body, CRC_32 (ISO/IEC
/// 13818-1, 2.4.4).
struct Section
{
    Bytes bytes;
    bool crcCorrect = false;

    std::uint8_t tableId() const { return bytes.at(0); }
    /// transport_stream_id, program_number or network_id, by table.
    std::uint16_t tableIdExtension() const
    {
        return static_cast<std::uint16_t>(bytes.at(3) << 8U | bytes.at(4));
    }
    std::uint8_t sectionNumber() const { return bytes.at(6); }
    std::uint8_t lastSectionNumber() const { return bytes.at(7); }
};

/// What a chain of sections was cut into.
struct SplitResult
{
    std::vector<Section> sections; ///< in the order of the bytes, those with a wrong CRC_32 included
    Bytes rest; ///< bytes after the last whole section; empty when the chain is whole
    std::string problem; ///< why there is a rest, empty when there is none

    /// Every byte belongs to a section and every CRC_32 is right.
    bool whole() const;
};

/// Cuts a chain of long-form sections, which stand one after another without prefix or separator, by their
/// own section_length. Stops at the first byte that can not begin a section (a length below the long form's 9
/// bytes or above 4093, or section_syntax_indicator 0) and at a section that is cut short; what is left is
/// the rest.
SplitResult splitSections(const Bytes& chain);

/// Bytes of the section that begins at `offset`, from its section_length; 0 when fewer than 3 bytes are
/// there.
std::size_t sectionSize(const Bytes& chain, std::size_t offset);

} // namespace tessary::client
