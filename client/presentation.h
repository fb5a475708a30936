#pragma once

#include "client/ebs.h"
#include "client/psi/tables.h"

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

    /// Whether some of the program's streams need a system of conditional access.
    enum class Scrambling {
        No, ///< nothing says so
        Perhaps, ///< the PMT names a system, which a program in the clear may do, too
        Yes, ///< free_CA_mode in the SDT
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
    Scrambling scrambling = Scrambling::No;
};

/// `told` is the decoder information since the program was chosen; nothing when the instrument gave none.
/// `service` is the program's entry in the SDT; null when there is none.
Presentation presentationOf(const ProgramMap& program, const std::optional<EbsDecoderInfo>& told,
    const ServiceDescription::Service* service);

/// True when asking for the decoder information again may tell more.
bool mayTellMore(const ProgramMap& program, const EbsDecoderInfo& told);

/// A line for a person: "picture and sound", "sound only: radio", "picture only: the service has no sound".
std::string textOf(const Presentation& presentation);

/// One word for programs: "absent", "decoded", "awaited", "undecodable", "untold".
std::string wordOf(Presentation::State state);
/// "no", "perhaps", "yes".
std::string wordOf(Presentation::Scrambling scrambling);

} // namespace tessary::client
