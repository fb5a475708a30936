#pragma once

#include "client/bytes.h"
#include "client/sections.h"

#include <initializer_list>
#include <string>

namespace tessary::test {

/// A section made by hand: long-form header, the given body, a right CRC_32. `number` is also the
/// last_section_number.
client::Bytes makeSection(
    std::uint8_t tableId, std::uint16_t extension, const client::Bytes& body, std::uint8_t number = 0);

/// descriptor_tag, descriptor_length, payload.
client::Bytes makeDescriptor(std::uint8_t tag, const client::Bytes& payload);

/// A 12-bit length with its four reserved bits, then the bytes: how descriptor loops are carried.
client::Bytes makeLoop(const client::Bytes& content);

/// The parts one after another.
client::Bytes join(std::initializer_list<client::Bytes> parts);

/// service_descriptor of ETSI EN 300 468, 6.2.33; the texts are given as carried, character table byte
/// included.
client::Bytes serviceDescriptor(std::uint8_t type, const std::string& provider, const std::string& name);

/// The first section in `bytes`.
client::Section onlySection(const client::Bytes& bytes);

} // namespace tessary::test
