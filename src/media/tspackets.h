#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// Cuts bytes, as they come, into transport stream packets of 188 bytes: those of ISO/IEC 13818-1, or the first 188
/// of longer ones (192 with a time stamp, 204 and 208 with parity). Not thread-safe.
class TsPackets
{
public:
    /// Forgets what has come, as at a gap.
    void reset();
    /// Takes bytes over; next() then gives the packets in them.
    void add(const std::uint8_t* bytes, std::size_t size);
    /// The next whole packet, valid until add(); null when there is none.
    const std::uint8_t* next();

private:
    static constexpr std::size_t shortest = 188;

    bool findStep();
    bool begins(std::size_t at) const;

    std::vector<std::uint8_t> m_bytes;
    std::size_t m_at = 0; ///< of the next packet in `m_bytes`, or behind them
    std::size_t m_step = 0; ///< from packet to packet, 0 when it has to be looked for
};
