#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tessary::client {

/// A text in the 8-bit character code of Japanese broadcasting (ARIB STD-B24) as UTF-8. Of its sets these are
/// known: kanji, alphanumeric, hiragana, katakana; characters of others become U+FFFD. Control codes are left
/// out.
std::string aribText(const std::uint8_t* text, std::size_t length);

} // namespace tessary::client
