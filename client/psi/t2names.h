#pragma once

namespace tessary::client {

// Codes that L1 signalling and the NIT's T2 descriptor have in common (ETSI EN 302 755, 7.2.2 and 7.2.3.1; ETSI EN
// 300 468, 6.4.6.3), for codedText().

inline constexpr const char* t2GuardIntervals[] = {"1/32", "1/16", "1/8", "1/4", "1/128", "19/128", "19/256"};
/// Size of the FFT. The last two are L1's alone, for the guard intervals that DVB-T has not.
inline constexpr const char* t2TransmissionModes[] = {"2k", "8k", "4k", "1k", "16k", "32k", "8k", "32k"};

} // namespace tessary::client
