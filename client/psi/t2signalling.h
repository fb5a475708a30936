#pragma once

#include "client/psi/bytes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessary::client {

/// The layer 1 signalling of a DVB-T2 modulator: of L1-pre and of the configurable part of L1-post (ETSI EN
/// 302 755, 7.2.2 and 7.2.3.1) what tells how the signal is made up. Texts are those of a person, empty where
/// a code is reserved.
struct T2Signalling
{
    struct Plp
    {
        int id = 0;
        std::string type; ///< "common", "data, type 1"
        std::string payload; ///< "TS", "GSE", ...
        int group = 0; ///< PLP_GROUP_ID
        std::string codeRate; ///< "3/5"
        std::string modulation; ///< "256-QAM"
        bool rotated = false; ///< constellation rotation
        std::string mode; ///< of the baseband frames: "normal", "high efficiency"
    };

    int type = 0; ///< TYPE: 0 transport streams, 1 generic streams, 2 both
    bool bandwidthExtended = false; ///< BWT_EXT
    std::string preamble; ///< S1: "T2, SISO"
    std::string transmissionMode; ///< size of the FFT, of S2: "16k"
    bool futureExtensionFrames = false; ///< the last bit of S2
    std::string guardInterval;
    std::string l1Modulation; ///< of L1-post
    int pilotPattern = 0; ///< 1 to 8; 0 for a reserved one
    int cellId = 0;
    int networkId = 0;
    int systemId = 0; ///< T2_SYSTEM_ID
    int framesPerSuperframe = 0; ///< NUM_T2_FRAMES
    int symbolsPerFrame = 0; ///< NUM_DATA_SYMBOLS
    int version = 0; ///< T2_VERSION
    std::vector<std::uint32_t> frequencies; ///< Hz, of the RF channels; 0 where the modulator is free
    std::vector<Plp> plps;
};

/// Out of the payload of a T2-MI packet of type L1-current (ETSI TS 102 773, 5.2.3), from its frame_idx on.
/// Nothing when it is too short for what it announces.
std::optional<T2Signalling> decodeT2Signalling(const Bytes& payload);

/// "102 (data, type 1, TS, 3/5, 256-QAM)".
std::string textOf(const T2Signalling::Plp& plp);

} // namespace tessary::client
