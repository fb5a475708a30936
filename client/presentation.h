#pragma once

#include "client/ebs.h"
#include "client/tables.h"

#include <optional>
#include <string>

namespace tessary::client {

/// What a person at the instrument sees and hears of a program, concluded from what the stream announces and
/// what the decoder information tells.
struct Presentation
{
    enum class State {
        Absent, ///< the program has none
        Decoded,
        Awaited, ///< not decoded so far
        Undecodable, ///< the instrument has no decoder
        Untold, ///< the instrument does not tell
    };

    struct Part
    {
        State state = State::Absent;
        std::string codec; ///< when decoded: which; otherwise those announced, for example "DTS, AC-4"
    };

    Part picture; ///< never Undecodable: a picture that is not decoded is awaited
    Part sound;
    int width = 0; ///< pixels, of a decoded picture
    int height = 0; ///< pixels, of a decoded picture
    bool radio = false; ///< by its service_type
    bool scrambled = false; ///< parts of it may be: the PMT names a system of conditional access
};

/// `told` is the decoder information since the program was chosen; nothing when the instrument gave none.
Presentation presentationOf(const ProgramMap& program, const std::optional<EbsDecoderInfo>& told, bool radio);

/// True when asking for the decoder information again may tell more.
bool mayTellMore(const ProgramMap& program, const EbsDecoderInfo& told);

/// A line for a person: "picture and sound", "sound only: radio", "picture only: the service has no sound".
std::string textOf(const Presentation& presentation);

/// One word for programs: "absent", "decoded", "awaited", "undecodable", "untold".
std::string wordOf(Presentation::State state);

} // namespace tessary::client
