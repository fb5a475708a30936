#pragma once

#include <chrono>
#include <cstddef>

namespace tessary::panel {

/// What a request may take of the panel, whoever sends it.
struct RequestLimits
{
    int connections = 256; ///< at a time; each browser keeps some open for as long as it looks
    std::size_t headBytes = 32 * 1024; ///< of request line and header fields
    std::chrono::milliseconds silence{5000}; ///< between two bytes, and until the other side takes more
    std::chrono::milliseconds whole{
        10000}; ///< for the head; for a body again, and what its size needs besides
    std::size_t leastBytesPerSecond = 16 * 1024; ///< of a body
};

} // namespace tessary::panel
