#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace tessary::t2mi {

constexpr std::size_t kTsPacketBytes = 188;
constexpr std::uint8_t kTsSyncByte = 0x47;

/// Cuts a byte stream that arrives in chunks of any size into transport stream packets of 188 bytes
/// (ISO/IEC 13818-1, 2.4.3). A stream that starts with the sync byte is taken to be in step; after a wrong
/// sync byte the step is looked for again and believed when two sync bytes stand 188 bytes apart. Not
/// thread-safe.
class Packetizer
{
public:
    /// Called for each packet with its 188 bytes, which are valid during the call only.
    using PacketSink = std::function<void(const std::uint8_t* packet)>;

    explicit Packetizer(PacketSink sink);

    /// Takes `size` bytes; calls the sink for each packet that became complete.
    void push(const std::uint8_t* data, std::size_t size);

    /// Forgets a packet begun and searches the step anew.
    void reset();

    /// Bytes thrown away so far because they were in no packet.
    std::uint64_t skippedBytes() const { return m_skippedBytes; }

private:
    bool findStep(std::size_t& position);

    PacketSink m_sink;
    std::vector<std::uint8_t> m_pending;
    bool m_inStep = true;
    std::uint64_t m_skippedBytes = 0;
};

} // namespace tessary::t2mi
