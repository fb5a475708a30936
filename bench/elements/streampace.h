#pragma once

#include <cstddef>
#include <cstdint>

/// Bit rate in bit/s of a piece of transport stream, from the first program clock reference and the last one
/// of the same PID that follows it without a jump (ISO/IEC 13818-1, 2.4.3.5). Packets may be 188, 192 or 204
/// bytes apart and need not start at the first byte. 0: no two references were found.
std::uint64_t bitRateFromPcr(const std::uint8_t* data, std::size_t size);

/// Tells when the bytes of a stream with a constant bit rate are due. All times are microseconds of one
/// steady clock. Not thread-safe.
class StreamPace
{
public:
    /// Starts anew: the next byte is due at once after the call of due().
    void restart();

    /// `bitRate` in bit/s from the next byte on; 0 makes everything due at once.
    void setBitRate(std::uint64_t bitRate);

    /// Counts `bytes` as the next ones of the stream and returns when the last of them is due. A delivery
    /// that fell behind by more than half a second (the process was stopped) is not caught up.
    std::int64_t due(std::size_t bytes, std::int64_t now);

private:
    std::uint64_t m_bitRate = 0;
    std::int64_t m_start = -1; // -1: not started
    std::uint64_t m_bytes = 0; // since m_start
};
