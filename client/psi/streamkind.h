#pragma once

#include "client/psi/tables.h"

#include <string>

namespace tessary::client {

/// What an elementary stream is, as the PMT announces it.
struct StreamKind
{
    enum class Medium { Picture, Sound, Other };

    /// What is known of the instrument's decoding such a stream.
    enum class Decoding {
        Told, ///< the decoder information has a code for it
        Untold, ///< no code: it may be decoded or not
        Never, ///< the instrument leaves it undecoded
    };

    Medium medium = Medium::Other;
    std::string text; ///< what a person calls it, for example "H.264 video", "teletext"; or "type 0x.."
    std::string codec; ///< of picture and sound, for example "H.264"; else empty
    Decoding decoding = Decoding::Untold; ///< of picture and sound
    int code =
        0; ///< in the decoder information; 0 without one, and for MPEG audio, whose code tells the layer

    /// A T2-MI_descriptor announces it (ETSI EN 300 468, 6.4.14).
    bool carriesT2mi() const { return text == t2miText; }
    static constexpr const char* t2miText = "T2-MI";
};

/// The kind of a stream of `program`, by stream_type (ISO/IEC 13818-1, table 2-34), by the descriptors of
/// private PES and private sections (ETSI EN 300 468, 6.1 and annex D; SCTE 35; ARIB STD-B10), and where
/// users of private types collide by their registration_descriptors.
StreamKind kindOf(const ProgramMap& program, const ProgramMap::Stream& stream);

} // namespace tessary::client
