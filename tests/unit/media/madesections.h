#pragma once

#include "media/mpegts.h"

#include <cstdint>
#include <string>
#include <vector>

/// PSI and SI sections made by hand (ISO/IEC 13818-1, ETSI EN 300 468), long form with a right CRC_32.
namespace madesections {

using Bytes = std::vector<std::uint8_t>;

/// A section of any table around `body` (what stands between last_section_number and CRC_32).
Bytes section(std::uint8_t tableId, std::uint16_t extension, const Bytes& body, std::uint8_t number = 0,
    std::uint8_t lastNumber = 0, std::uint8_t version = 0);

/// A PAT that lists the programs, in order, each with PMT PID 0x100 + its position.
Bytes pat(const std::vector<std::uint16_t>& programs, std::uint8_t version = 0);

/// A PMT of the program with one H.264 stream on `pid`.
Bytes pmt(std::uint16_t program, std::uint16_t pid = 0x200, std::uint8_t version = 0);

/// An SDT section of exactly `length` bytes that lists the services; the first has a service name that fills
/// the length. `tableId` 0x42 is the actual, 0x46 another transport stream.
Bytes sdt(const std::vector<std::uint16_t>& services, std::size_t length, std::uint8_t number = 0,
    std::uint8_t tableId = 0x42);

/// A NIT section with a network name. `tableId` 0x40 is the actual, 0x41 another network.
Bytes nit(std::uint8_t number, const std::string& name, std::uint8_t tableId = 0x40);

/// The same section with its last CRC_32 byte changed.
Bytes damaged(Bytes section);

/// As GStreamer's parsers deliver it from the table's own PID (a PMT's is 0x1000); the caller owns the
/// reference.
GstMpegtsSection* delivered(const Bytes& section);

/// Posts the section on the bus of the pipeline, from the pipeline's name, as tsparse does.
void post(GstElement* pipeline, const Bytes& section);

} // namespace madesections
