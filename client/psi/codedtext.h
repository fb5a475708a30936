#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tessary::client {

/// The text of a coded value; empty for one that has none.
template <std::size_t size> std::string codedText(const char* const (&names)[size], std::uint64_t code)
{
    return code < size ? names[code] : "";
}

} // namespace tessary::client
