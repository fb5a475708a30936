#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Reads a fuzzing input from front to back. What is beyond the end reads as zero or as nothing, so that
/// every input means something.
class Input
{
public:
    Input(const std::uint8_t* bytes, std::size_t size)
        : m_next(bytes)
        , m_left(size)
    {
    }

    bool empty() const { return m_left == 0; }
    std::size_t left() const { return m_left; }

    std::uint8_t byte()
    {
        if (m_left == 0)
            return 0;
        --m_left;
        return *m_next++;
    }

    /// The next `octets` bytes as a number, least significant first.
    std::uint64_t number(int octets)
    {
        std::uint64_t value = 0;
        for (int i = 0; i < octets; ++i)
            value |= static_cast<std::uint64_t>(byte()) << (8 * i);
        return value;
    }

    /// At most `count` bytes, in a block of exactly their size: reading behind it is seen.
    std::vector<std::uint8_t> bytes(std::size_t count)
    {
        const std::size_t taken = std::min(count, m_left);
        std::vector<std::uint8_t> block(m_next, m_next + taken);
        block.shrink_to_fit();
        m_next += taken;
        m_left -= taken;
        return block;
    }

    std::vector<std::uint8_t> rest() { return bytes(m_left); }

    std::string text()
    {
        const std::vector<std::uint8_t> block = rest();
        return {block.begin(), block.end()};
    }

private:
    const std::uint8_t* m_next;
    std::size_t m_left;
};

/// Ends the run as a finding when something that always holds does not.
#define FUZZ_REQUIRE(condition)                                                                              \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            __builtin_trap();                                                                                \
    } while (false)
