#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace tessary::sender {

/// One datagram on its way out. The bytes are borrowed from its source until that is asked again.
struct Datagram
{
    const std::uint8_t* data = nullptr; ///< UDP payload
    std::size_t size = 0;
    std::size_t tsBytes = 0; ///< of it, transport stream
    std::size_t packets = 0; ///< transport stream packets
    const std::uint8_t* vlanTags = nullptr; ///< IEEE 802.1Q tags as on the wire, 4 bytes each; null: none
    std::size_t vlanBytes = 0;
};

/// Hands out datagrams and tells when each is due. Not thread-safe.
class DatagramSource
{
public:
    virtual ~DatagramSource() = default;

    /// Time of the next datagram, in ns of the stream since its start; never less than that of the one
    /// before.
    virtual std::int64_t nextTimeNs() = 0;
    /// The next datagram; nothing when there are no more.
    virtual std::optional<Datagram> take() = 0;

    virtual double tsBitRate() const = 0; ///< mean bits per second of transport stream
    virtual std::size_t headerBytes() const = 0; ///< RTP header and VLAN tags of each datagram
    virtual std::uint64_t errorsMade() const = 0; ///< continuity errors put in
    virtual std::uint64_t passesBegun() const = 0;
};

} // namespace tessary::sender
