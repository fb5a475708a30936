#pragma once

#include "client/bytes.h"

#include <cstddef>
#include <optional>
#include <string>

namespace tessary::client {

/// One T2-MI packet (ETSI TS 102 773, 5.1).
struct T2miPacket
{
    /// The fields before the data of a baseband frame packet (packet_type 0x00, 5.2.1).
    struct BasebandFrame
    {
        int frameIndex = 0; ///< frame_idx
        int plpId = 0;
        bool interleavingFrameStart = false; ///< intl_frame_start
        std::size_t bytes = 0; ///< of the baseband frame itself
    };

    int type = 0; ///< packet_type
    int count = 0; ///< packet_count
    int superframeIndex = 0;
    int streamId = 0; ///< t2mi_stream_id
    std::size_t payloadBits = 0; ///< payload_len
    bool crcCorrect = false; ///< the CRC-32 that ends the packet
    std::optional<BasebandFrame> basebandFrame;
};

/// Bytes of the packet that begins here, from its payload_len: header, payload padded to whole bytes, CRC-32;
/// 0 when fewer than the header's 6 bytes are there.
std::size_t t2miPacketSize(const Bytes& bytes);

/// Nothing when `bytes` are not exactly one packet.
std::optional<T2miPacket> decodeT2miPacket(const Bytes& bytes);

/// What a person calls a packet_type, for example "baseband frame".
std::string t2miTypeName(int type);

} // namespace tessary::client
