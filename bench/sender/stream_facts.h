#pragma once

#include <bitset>
#include <cstdint>

#include "ts_file.h"
#include "ts_packet.h"

namespace tessary::sender {

/// What one look through a whole file tells about it.
struct StreamFacts
{
    /// Mean bits per second of the file's own packets (188 or 204 bytes each) between the PCRs of the PID
    /// that has most of them; 0 when no PID has two usable PCRs.
    double bitRateFromPcr = 0;

    /// PIDs that carry PES packets (sound, pictures, subtitles).
    std::bitset<ts::PidCount> pesPids;
};

/// Reads every packet of `file` once.
StreamFacts readFacts(const TsFile& file);

} // namespace tessary::sender
