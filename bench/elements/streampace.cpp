#include "streampace.h"

#include <array>
#include <optional>

namespace {

constexpr std::uint64_t kPcrHz = 27000000;
constexpr std::uint64_t kPcrModulus = (std::uint64_t{1} << 33) * 300;
constexpr std::uint64_t kLongestPcrGap = kPcrHz; // standards ask for 0.1 s at most; more than 1 s is a jump
constexpr std::int64_t kLongestCatchUpUs = 500000;

struct Step
{
    std::size_t offset;
    std::size_t bytes;
};

std::optional<Step> findStep(const std::uint8_t* data, std::size_t size)
{
    constexpr std::array<std::size_t, 3> distances{188, 204, 192};
    constexpr std::size_t wanted = 5; // sync bytes in a row
    for (std::size_t offset = 0; offset < 2 * distances[1]; ++offset) {
        for (const std::size_t distance : distances) {
            std::size_t found = 0;
            while (
                found < wanted && offset + found * distance < size && data[offset + found * distance] == 0x47)
                ++found;
            if (found == wanted)
                return Step{offset, distance};
        }
    }
    return std::nullopt;
}

// Program clock reference in units of 27 MHz, if the packet carries one.
std::optional<std::uint64_t> readPcr(const std::uint8_t* packet)
{
    const bool hasAdaptation = (packet[3] & 0x20) != 0;
    if (packet[0] != 0x47 || !hasAdaptation || packet[4] < 7 || (packet[5] & 0x10) == 0)
        return std::nullopt;
    const std::uint64_t base = static_cast<std::uint64_t>(packet[6]) << 25
        | static_cast<std::uint64_t>(packet[7]) << 17 | static_cast<std::uint64_t>(packet[8]) << 9
        | static_cast<std::uint64_t>(packet[9]) << 1 | static_cast<std::uint64_t>(packet[10] >> 7);
    const std::uint64_t extension = static_cast<std::uint64_t>((packet[10] & 1) << 8 | packet[11]);
    return base * 300 + extension;
}

} // namespace

std::uint64_t bitRateFromPcr(const std::uint8_t* data, std::size_t size)
{
    const auto step = findStep(data, size);
    if (!step)
        return 0;
    int pcrPid = -1;
    std::size_t firstPosition = 0;
    std::size_t lastPosition = 0;
    std::uint64_t lastPcr = 0;
    std::uint64_t elapsed = 0;
    for (std::size_t position = step->offset; position + 188 <= size; position += step->bytes) {
        const std::uint8_t* packet = data + position;
        const auto pcr = readPcr(packet);
        const int pid = (packet[1] & 0x1F) << 8 | packet[2];
        if (!pcr || (pcrPid >= 0 && pid != pcrPid))
            continue;
        if (pcrPid < 0) {
            pcrPid = pid;
            firstPosition = position;
        } else {
            const std::uint64_t gap = (*pcr + kPcrModulus - lastPcr) % kPcrModulus;
            if (gap > kLongestPcrGap)
                break;
            elapsed += gap;
            lastPosition = position;
        }
        lastPcr = *pcr;
    }
    if (elapsed == 0)
        return 0;
    return (lastPosition - firstPosition) * 8 * kPcrHz / elapsed;
}

void StreamPace::restart()
{
    m_start = -1;
}

void StreamPace::setBitRate(std::uint64_t bitRate)
{
    m_bitRate = bitRate;
    restart();
}

std::int64_t StreamPace::due(std::size_t bytes, std::int64_t now)
{
    if (m_bitRate == 0)
        return now;
    if (m_start < 0) {
        m_start = now;
        m_bytes = 0;
    }
    m_bytes += bytes;
    // Whole seconds first: bytes times 8,000,000 would leave 64 bits after some weeks of a fast stream.
    const std::uint64_t bits = m_bytes * 8;
    const std::uint64_t us = bits / m_bitRate * 1000000 + bits % m_bitRate * 1000000 / m_bitRate;
    const std::int64_t due = m_start + static_cast<std::int64_t>(us);
    if (due + kLongestCatchUpUs < now)
        restart();
    return due;
}
