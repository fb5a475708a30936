#pragma once

#include "client/psi/bytes.h"
#include "client/psi/t2signalling.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessary::client {

/// One T2-MI packet (ETSI TS 102 773, 5.1).
struct T2miPacket
{
    /// BBHEADER (ETSI EN 302 755, 5.1.7). Texts are those of a person.
    struct BasebandHeader
    {
        std::string input; ///< TS/GS: "TS", "GFPS", "GCS", "GSE"
        bool singleInput = false; ///< SIS/MIS
        bool constantCoding = false; ///< CCM/ACM
        bool inputSynchronized = false; ///< ISSYI
        bool nullPacketsDeleted = false; ///< NPD
        int inputStream = 0; ///< ISI: of several input streams, which
        std::string mode; ///< of its CRC-8: "normal", "high efficiency"; empty when that is wrong
        int userPacketBits = 0; ///< UPL; in normal mode only
        int dataFieldBits = 0; ///< DFL
        int syncDistance = 0; ///< SYNCD, bits; 65535 when no packet begins in the frame
    };

    /// The fields before the data of a baseband frame packet (packet_type 0x00, 5.2.1).
    struct BasebandFrame
    {
        int frameIndex = 0; ///< frame_idx
        int plpId = 0;
        bool interleavingFrameStart = false; ///< intl_frame_start
        std::size_t bytes = 0; ///< of the baseband frame itself
        std::optional<BasebandHeader> header; ///< nothing when the frame is shorter
    };

    /// A DVB-T2 timestamp (packet_type 0x20, 5.2.7): when the superframe goes out.
    struct Timestamp
    {
        enum class Kind {
            Null, ///< says nothing
            Relative, ///< within a second of the modulator's reference
            Absolute,
        };

        Kind kind = Kind::Null;
        double bandwidth = 0; ///< Hz; 0 for a reserved code
        std::uint64_t seconds = 0; ///< seconds_since_2000, leap seconds counted
        double microseconds = 0; ///< of the subseconds, within the second
        int utcOffset = 0; ///< utco: leap seconds since 2000
        std::int64_t unixSeconds() const; ///< of an absolute one, UTC
    };

    int type = 0; ///< packet_type
    int count = 0; ///< packet_count
    int superframeIndex = 0;
    int streamId = 0; ///< t2mi_stream_id
    std::size_t payloadBits = 0; ///< payload_len
    bool crcCorrect = false; ///< the CRC-32 that ends the packet
    std::optional<BasebandFrame> basebandFrame;
    std::optional<T2Signalling> signalling; ///< of L1-current
    std::optional<Timestamp> timestamp;
};

/// Bytes of the packet that begins here, from its payload_len: header, payload padded to whole bytes, CRC-32;
/// 0 when fewer than the header's 6 bytes are there.
std::size_t t2miPacketSize(const Bytes& bytes);

/// Nothing when `bytes` are not exactly one packet.
std::optional<T2miPacket> decodeT2miPacket(const Bytes& bytes);

/// What a person calls a packet_type, for example "baseband frame".
std::string t2miTypeName(int type);

/// The types that there are, as one word each: "baseband", "l1-current", "timestamp" and so on.
std::vector<std::string> t2miTypeWords();
/// The packet_type of such a word; nothing for another.
std::optional<int> t2miTypeOf(const std::string& word);

/// "relative, 975271 µs", "2024-05-01 12:00:00 UTC + 12.5 µs".
std::string textOf(const T2miPacket::Timestamp& timestamp);

} // namespace tessary::client
