#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace tessary::t2mi {

constexpr std::size_t kT2MiHeaderBytes = 6;
constexpr std::size_t kT2MiCrcBytes = 4;
/// The payload length field counts up to 65,535 bits: 8,192 bytes (ETSI TS 102 773, clause 5.1).
constexpr std::size_t kT2MiMaxPacketBytes = kT2MiHeaderBytes + 8192 + kT2MiCrcBytes;

/// Packet types of ETSI TS 102 773, table 1, as far as they are told apart here.
enum class PacketType : std::uint8_t { BasebandFrame = 0x00 };

/// Collects T2-MI packets from the transport stream packets of one PID (ETSI TS 102 773, clause 6: data
/// piping with pointer_field). Repeated transport stream packets are ignored; after a loss the packet begun
/// is dropped and collection resumes at the next pointer_field. Not thread-safe.
class T2MiDemux
{
public:
    /// One whole T2-MI packet with a right CRC-32: header, payload with padding, CRC. Valid during the call
    /// only.
    using PacketSink = std::function<void(const std::uint8_t* packet, std::size_t size)>;
    /// Told when T2-MI packets are missing before the next one delivered.
    using LossSink = std::function<void()>;

    /// What was seen since construction.
    struct Counters
    {
        std::uint64_t packets = 0; ///< T2-MI packets with a right CRC-32
        std::uint64_t crcErrors = 0; ///< T2-MI packets thrown away for a wrong CRC-32
        std::uint64_t tsDiscontinuities = 0; ///< gaps of the continuity counter
        std::uint64_t framingErrors = 0; ///< packets whose length disagrees with the pointer_field
        std::uint64_t countErrors = 0; ///< jumps of the T2-MI packet_count
    };

    /// `pid`: the PID that carries T2-MI; one outside 0..8191 matches nothing.
    T2MiDemux(int pid, PacketSink packetSink, LossSink lossSink);

    /// Takes one transport stream packet of 188 bytes, of any PID.
    void push(const std::uint8_t* tsPacket);

    const Counters& counters() const { return m_counters; }

private:
    bool isRepeated(const std::uint8_t* payload, std::size_t size, unsigned continuityCounter) const;
    void takePayload(const std::uint8_t* payload, std::size_t size, bool unitStart);
    void extractWholePackets();
    void deliver(const std::uint8_t* packet, std::size_t size);
    void checkPacketCount(const std::uint8_t* packet);
    void lose();

    int m_pid;
    PacketSink m_packetSink;
    LossSink m_lossSink;
    Counters m_counters;
    std::vector<std::uint8_t> m_pending; // begins at a T2-MI header while m_synced
    bool m_synced = false;
    int m_lastContinuityCounter = -1;
    std::vector<std::uint8_t> m_lastPayload;
    int m_lastCount = -1;
    int m_lastStreamId = -1;
};

} // namespace tessary::t2mi
