#pragma once

#include "kit/bytes.h"

#include <string>
#include <vector>

/// PSI and SI sections made by hand (ISO/IEC 13818-1, ETSI EN 300 468), in long form with a right CRC_32.
namespace tessary::test {

struct SectionNumbers
{
    std::uint8_t number = 0;
    std::uint8_t last = 0;
    std::uint8_t version = 0;
};

/// A section of any table around `body` (what stands between last_section_number and CRC_32).
Bytes makeSection(
    std::uint8_t tableId, std::uint16_t extension, const Bytes& body, const SectionNumbers& numbers = {});

/// A section of any bytes with its section_length and CRC_32 made right: what is too short for the long form
/// is filled up with zeros.
Bytes soundSection(Bytes bytes);

/// The same section with its last CRC_32 byte changed.
Bytes damaged(Bytes section);

/// descriptor_tag, descriptor_length, payload.
Bytes makeDescriptor(std::uint8_t tag, const Bytes& payload);

/// A 12-bit length with its four reserved bits, then the bytes: how descriptor loops are carried.
Bytes makeLoop(const Bytes& content);

/// service_descriptor of ETSI EN 300 468, 6.2.33; the texts as carried, character table byte included.
Bytes serviceDescriptor(std::uint8_t type, const std::string& provider, const std::string& name);

/// A PAT that lists the programs, in order, each with PMT PID 0x100 + its position.
Bytes makePat(const std::vector<std::uint16_t>& programs, std::uint8_t version = 0);

/// A PMT of the program with one H.264 stream on `pid`.
Bytes makePmt(std::uint16_t program, std::uint16_t pid = 0x200, std::uint8_t version = 0);

/// An SDT section of exactly `length` bytes that lists the services; the first has a private descriptor that
/// fills the length. `tableId` 0x42 is the actual, 0x46 another transport stream.
Bytes makeSdt(const std::vector<std::uint16_t>& services, std::size_t length, std::uint8_t number = 0,
    std::uint8_t tableId = 0x42);

/// A NIT section with a network name, one of two. `tableId` 0x40 is the actual, 0x41 another network.
Bytes makeNit(std::uint8_t number, const std::string& name, std::uint8_t tableId = 0x40);

} // namespace tessary::test
