#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// The FPGA's input for a stream that the module sends: a buffer that empties at a rate. It counts bytes; the
/// caller keeps them. Time is given, not taken. No locking.
class StreamInput
{
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::size_t bufferBytes = 64 * 1024;
    static constexpr std::size_t writableBytes = 4096; ///< room from which on the device counts as writable

    /// Bytes per second that leave the buffer; 0 stalls it, a negative number takes everything at once.
    void setRate(std::int64_t bytesPerSecond, Time now);
    std::int64_t rate() const { return m_rate; }

    bool writable(Time now);
    /// How many of `size` bytes it takes now.
    std::size_t take(std::size_t size, Time now);

private:
    void drain(Time now);

    std::int64_t m_rate = -1;
    std::size_t m_level = 0;
    Time m_drained{};
};
