#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tessary::client {

/// Binary data off the serial line (sections, frames).
using Bytes = std::vector<std::uint8_t>;

/// The same octets, no conversion of any kind.
inline Bytes toBytes(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

} // namespace tessary::client
