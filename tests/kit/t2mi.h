#pragma once

#include "kit/bytes.h"

#include <vector>

/// Makes T2-MI streams for tests: transport stream packets into baseband frames into T2-MI packets into
/// transport stream packets (ETSI EN 302 755, clause 5.1; ETSI TS 102 773). What it writes follows the
/// standards' text and shares nothing with the code under test.
namespace tessary::test {

constexpr int kPid = 0x40;
constexpr int kPlp = 7;

enum class Mode { Normal, NormalCrcAhead, HighEfficiency };

struct ModeOptions
{
    Mode mode = Mode::HighEfficiency;
    std::size_t issyBytes =
        0; ///< per user packet in normal mode; in high-efficiency mode any value fills the header
    bool deleteNullPackets = false;
    bool tellLength = true; ///< normal mode: UPL in the header, else 0
};

/// Baseband frames of `dataBytes` data bytes each (the last one shorter) that carry the packets.
std::vector<Bytes> basebandFrames(
    const std::vector<Bytes>& packets, const ModeOptions& options, std::size_t dataBytes);

/// One T2-MI packet; `payloadBits` 0 means the whole payload.
Bytes t2miPacket(
    unsigned type, unsigned count, const Bytes& payload, unsigned streamId = 0, std::size_t payloadBits = 0);

/// T2-MI packets of type baseband frame, counted from `firstCount`.
std::vector<Bytes> t2miFrames(const std::vector<Bytes>& frames, int plp = kPlp, unsigned firstCount = 0);

/// Transport stream packets that carry the T2-MI packets back to back, ended by stuffing.
std::vector<Bytes> tsPackets(
    const std::vector<Bytes>& t2miPackets, int pid = kPid, unsigned firstCounter = 0);

} // namespace tessary::test
