#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "continuity_rewriter.h"
#include "restamper.h"
#include "ts_file.h"
#include "ts_packet.h"

namespace tessary::sender {

/// What PacketSource makes of a file.
struct SourceSettings
{
    std::size_t packetSize = ts::PacketBytes; ///< bytes of a packet as sent: 188 or 204
    std::uint64_t passes = 1; ///< how often the file is sent; 0: without end
    bool rewriteCounters = false; ///< keep continuity counters continuous; needed for breakCounters()
    std::uint64_t restampTicks = 0; ///< 27 MHz periods of a pass; 0: clocks stay as in the file
    std::bitset<ts::PidCount> breakablePids; ///< where continuity errors may be put
};

/// Hands out a file's packets in sending order, repeated and changed as set. Borrows the file. Not
/// thread-safe.
class PacketSource
{
public:
    PacketSource(const TsFile& file, const SourceSettings& settings);

    /// Writes the next packet (settings.packetSize bytes) to `out`; false when the last pass is over.
    bool next(std::uint8_t* out);

    /// From now on continuity errors are put in, one a packet, until `total` have been put in since the
    /// start.
    void breakCounters(std::uint64_t total) { m_errorsWanted = total; }

    std::uint64_t errorsMade() const { return m_errorsMade; }
    std::uint64_t passesBegun() const { return m_pass; }

private:
    bool beginPass();
    bool change(std::uint8_t* packet);

    const TsFile& m_file;
    SourceSettings m_settings;
    ContinuityRewriter m_counters;
    std::optional<Restamper> m_restamper;
    std::size_t m_index = 0;
    std::uint64_t m_pass = 0;
    std::uint64_t m_errorsWanted = 0;
    std::uint64_t m_errorsMade = 0;
};

} // namespace tessary::sender
