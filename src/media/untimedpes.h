#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Which packets to keep from a demultiplexer that can not tell the time yet, because PES packets without a time stamp
/// come before any other of their stream. Not thread-safe.
///
/// Packets are those of ISO/IEC 13818-1, 188 bytes from the sync byte on.
class UntimedPes
{
public:
    static constexpr std::size_t packetSize = 188;

    /// The demultiplexer has begun its streams, or begun them anew: it has data of none.
    void streamsBegan();
    /// It gave data of a stream: from now on it can tell the time of all.
    void dataLeft() { m_waiting = false; }

    /// Whether a PES packet begins here that has no time stamp, or not all of it in this packet: before such a one the
    /// demultiplexer has to have got all that was before it.
    static bool begins(const std::uint8_t* packet);

    /// Takes the next packet; false: it is to be left out.
    bool take(const std::uint8_t* packet);

private:
    /// Of a PID.
    struct Stream
    {
        std::uint8_t counter = 0; ///< continuity_counter of the last packet with payload
        bool isTimed = false; ///< the demultiplexer has a PES packet with a time stamp, and all behind it
        bool isLeftOut = false; ///< up to the next start
    };

    bool takeStart(Stream& stream, const std::uint8_t* packet, bool continues);

    std::array<Stream, 8192> m_streams{};
    bool m_waiting = true; ///< for data
};
