#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tessary::client {

/// A text of an SI table as UTF-8: coded after ETSI EN 300 468 annex A, or, when `network`
/// (original_network_id or network_id) is one of Japan's, after ARIB STD-B24 with its kanji, kana and
/// letters. Control codes are left out, also those in front of a text of which no standard knows anything;
/// what follows these is taken for ISO 8859-15, as the ISDB of South America has it. Safe for all bytes.
std::string servicesText(const std::uint8_t* text, std::size_t length, std::uint16_t network);

/// True when a person would call both the same name: without regard to case, in every script, to blanks at
/// the ends, and to how accents are composed.
bool sameName(const std::string& one, const std::string& other);

} // namespace tessary::client
