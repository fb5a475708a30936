#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Which packets to keep from a demultiplexer that can not tell the time yet: PES packets without a time stamp. Not
/// thread-safe.
///
/// Packets are those of ISO/IEC 13818-1, 188 bytes from the sync byte on.
class UntimedPes
{
public:
    static constexpr std::size_t packetSize = 188;

    /// The demultiplexer has begun its streams, or begun them anew: it has data of none.
    void streamsBegan() { m_waiting = true; }
    /// It gave data of a stream: from now on it can tell the time of all.
    void dataLeft() { m_waiting = false; }

    /// Whether a PES packet begins here that has no time stamp, or not all of it in this packet: before such a one the
    /// demultiplexer has to have got all that was before it.
    static bool begins(const std::uint8_t* packet);

    /// Takes the next packet; false: it is to be left out.
    bool take(const std::uint8_t* packet);

private:
    std::array<bool, 8192> m_isLeftOut{}; ///< by PID, up to the next start
    bool m_waiting = true; ///< for data
};
