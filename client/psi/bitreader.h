#pragma once

#include "client/psi/bytes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace tessary::client {

/// Takes fields off the front of bytes, most significant bit first. Beyond the end there are zeros; left()
/// tells. Borrows the bytes.
class BitReader
{
public:
    explicit BitReader(const Bytes& bytes, std::size_t firstByte = 0)
        : m_bytes(bytes)
        , m_at(8 * std::min(firstByte, bytes.size()))
    {
    }

    /// At most 64 bits.
    std::uint64_t take(std::size_t bits)
    {
        std::uint64_t value = 0;
        for (; bits > 0; --bits)
            value = value << 1U | next();
        return value;
    }

    bool flag() { return take(1) != 0; }

    /// Bits that are not taken yet.
    std::size_t left() const { return 8 * m_bytes.size() - m_at; }

private:
    std::uint64_t next()
    {
        if (left() == 0)
            return 0;
        const std::uint64_t bit = m_bytes[m_at / 8] >> (7 - m_at % 8) & 1U;
        ++m_at;
        return bit;
    }

    const Bytes& m_bytes;
    std::size_t m_at;
};

} // namespace tessary::client
