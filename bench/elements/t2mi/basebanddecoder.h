#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessary::t2mi {

/// Takes the transport stream out of the baseband frames of one PLP (ETSI EN 302 755, clause 5.1): normal
/// mode and high-efficiency mode, user packets running over frame borders, deleted null packets put back,
/// ISSY fields skipped, sync bytes restored. Not thread-safe.
class BasebandDecoder
{
public:
    /// What was seen since construction.
    struct Counters
    {
        std::uint64_t frames = 0; ///< baseband frames of the PLP
        std::uint64_t headerErrors = 0; ///< frames with a wrong header CRC-8 or impossible lengths
        std::uint64_t notTransportStream = 0; ///< frames that carry generic streams
        std::uint64_t syncErrors = 0; ///< user packets begun in one frame that the next did not end
        std::uint64_t userPackets = 0; ///< user packets delivered
        std::uint64_t userPacketErrors = 0; ///< user packets with a wrong CRC-8 (normal mode)
        std::uint64_t nullPackets = 0; ///< deleted null packets put back
    };

    /// `plp`: the physical layer pipe to extract; one outside 0..255 matches nothing.
    explicit BasebandDecoder(int plp);

    /// Takes the payload of a T2-MI packet of type baseband frame (ETSI TS 102 773, clause 5.2.1: frame_idx,
    /// plp_id, intl_frame_start, then the frame) and appends whole packets of 188 bytes to `out`.
    void push(const std::uint8_t* payload, std::size_t size, std::vector<std::uint8_t>& out);

    /// Drops the user packet begun: the frame that would end it is missing.
    void lose();

    const Counters& counters() const { return m_counters; }

private:
    /// Where the CRC-8 byte of a normal mode user packet stands. DVB-T2 appends it to the packet; equipment
    /// with the older satellite framing sends it ahead, in the place of the next sync byte. The stream itself
    /// tells.
    enum class CrcPlace { Unknown, Behind, Ahead };

    struct Layout
    {
        bool highEfficiency = false;
        bool nullPacketsDeleted = false;
        std::size_t unitBytes = 0; ///< distance of user packets in the data field
    };

    struct Header
    {
        Layout layout;
        std::size_t dataBytes = 0; ///< bytes of the data field
        std::size_t firstUnit = 0; ///< position of the first user packet that starts in the data field
        bool hasUnitStart = false;
    };

    bool parseHeader(const std::uint8_t* frame, std::size_t size, Header& header);
    void takeDataField(const std::uint8_t* data, const Header& header, std::vector<std::uint8_t>& out);
    void extractUnits(std::vector<std::uint8_t>& out);
    void learnCrcPlace(const std::uint8_t* unit);
    void emitUnit(const std::uint8_t* unit, std::vector<std::uint8_t>& out);

    int m_plp;
    Counters m_counters;
    Layout m_layout;
    CrcPlace m_crcPlace = CrcPlace::Unknown;
    bool m_synced = false;
    std::vector<std::uint8_t> m_pending; // begins at a user packet while m_synced
};

} // namespace tessary::t2mi
