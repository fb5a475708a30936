#include "client/presentation.h"

#include "client/psi/conditionalaccess.h"
#include "client/psi/mpegtsnames.h"
#include "client/psi/streamkind.h"

#include <algorithm>
#include <vector>

namespace tessary::client {

namespace {

using Medium = StreamKind::Medium;
using Decoding = StreamKind::Decoding;
using Scrambling = Presentation::Scrambling;
using State = Presentation::State;
using Kinds = std::vector<StreamKind>;

Kinds kindsOf(const ProgramMap& program, Medium medium)
{
    Kinds kinds;
    for (const ProgramMap::Stream& stream : program.streams) {
        StreamKind kind = kindOf(program, stream);
        if (kind.medium == medium)
            kinds.push_back(std::move(kind));
    }
    return kinds;
}

bool any(const Kinds& kinds, Decoding decoding)
{
    return std::any_of(
        kinds.begin(), kinds.end(), [decoding](const StreamKind& kind) { return kind.decoding == decoding; });
}

/// Each codec once.
std::string codecsOf(const Kinds& kinds)
{
    std::vector<std::string> named;
    std::string text;
    for (const StreamKind& kind : kinds) {
        if (std::find(named.begin(), named.end(), kind.codec) != named.end())
            continue;
        named.push_back(kind.codec);
        text += (text.empty() ? "" : ", ") + kind.codec;
    }
    return text;
}

/// The announced codec that has this code, which says more than the code; nothing when none has it.
std::optional<std::string> codecOf(const Kinds& kinds, int code)
{
    const auto found = std::find_if(
        kinds.begin(), kinds.end(), [code](const StreamKind& kind) { return kind.code == code; });
    return found != kinds.end() && code != 0 ? std::optional(found->codec) : std::nullopt;
}

bool hasPicture(const EbsDecoderInfo& told)
{
    return told.width > 0 && told.height > 0;
}

Presentation::Part pictureOf(const Kinds& kinds, const std::optional<EbsDecoderInfo>& told)
{
    if (told.has_value() && hasPicture(*told)) {
        // A picture of a codec without code, too, has a size.
        const std::string named = told->videoCode != 0 ? ebsVideoName(told->videoCode) : codecsOf(kinds);
        return {State::Decoded, codecOf(kinds, told->videoCode).value_or(named)};
    }
    if (kinds.empty())
        return {};
    return {told.has_value() ? State::Awaited : State::Untold, codecsOf(kinds)};
}

Presentation::Part soundOf(const Kinds& kinds, const std::optional<EbsDecoderInfo>& told)
{
    if (told.has_value() && told->audioCode != 0)
        return {State::Decoded, codecOf(kinds, told->audioCode).value_or(ebsAudioName(told->audioCode))};
    if (kinds.empty())
        return {};
    const std::string codecs = codecsOf(kinds);
    if (!any(kinds, Decoding::Told) && !any(kinds, Decoding::Untold))
        return {State::Undecodable, codecs};
    // The code is that of the first sound that arrives: one without code hides the others'.
    const bool tells = told.has_value() && !any(kinds, Decoding::Untold);
    return {tells ? State::Awaited : State::Untold, codecs};
}

Scrambling scramblingOf(const ProgramMap& program, const ServiceDescription::Service* service)
{
    if (service != nullptr && service->scrambled)
        return Scrambling::Yes;
    return conditionalAccessOf(program).empty() ? Scrambling::No : Scrambling::Perhaps;
}

/// Why something is not decoded, put between `before` and `after`; empty when nothing is known to be
/// scrambled.
std::string scrambledText(const Presentation& presentation, const char* before, const char* after)
{
    switch (presentation.scrambling) {
    case Scrambling::No:
        return {};
    case Scrambling::Perhaps:
        return std::string(before) + "scrambled?" + after;
    case Scrambling::Yes:
        return std::string(before) + "scrambled" + after;
    }
    return {};
}

std::string whyNoSound(const Presentation& presentation)
{
    switch (presentation.sound.state) {
    case State::Absent:
        return ": the service has no sound";
    case State::Undecodable:
        return ": no decoder for the sound (" + presentation.sound.codec + ")";
    default:
        return " so far: no sound decoded yet" + scrambledText(presentation, " (", ")");
    }
}

std::string whyNoPicture(const Presentation& presentation)
{
    if (presentation.picture.state == State::Absent)
        return presentation.radio ? ": radio" : ": the service has no picture";
    return " so far: no picture decoded yet" + scrambledText(presentation, " (", ")");
}

std::string textOfNeither(const Presentation& presentation)
{
    const bool absent = presentation.picture.state == State::Absent;
    if (absent && presentation.sound.state == State::Absent)
        return "neither picture nor sound: the service has none";
    if (absent && presentation.sound.state == State::Undecodable)
        return "neither picture nor sound" + whyNoSound(presentation);
    std::string text = "nothing decoded yet" + scrambledText(presentation, ": ", "");
    if (presentation.sound.state == State::Undecodable)
        text += "; no decoder for the sound (" + presentation.sound.codec + ")";
    return text;
}

/// The picture's half of a line whose other half is that the sound is not told of.
std::string textOfPicture(const Presentation& presentation)
{
    switch (presentation.picture.state) {
    case State::Decoded:
        return "picture";
    case State::Absent:
        return "no picture";
    default:
        return "no picture decoded yet";
    }
}

} // namespace

Presentation presentationOf(const ProgramMap& program, const std::optional<EbsDecoderInfo>& told,
    const ServiceDescription::Service* service)
{
    Presentation presentation;
    presentation.picture = pictureOf(kindsOf(program, Medium::Picture), told);
    presentation.sound = soundOf(kindsOf(program, Medium::Sound), told);
    if (presentation.picture.state == State::Decoded) {
        presentation.width = told->width;
        presentation.height = told->height;
    }
    presentation.radio = service != nullptr && isRadio(service->type);
    presentation.scrambling = scramblingOf(program, service);
    return presentation;
}

bool mayTellMore(const ProgramMap& program, const EbsDecoderInfo& told)
{
    const Kinds pictures = kindsOf(program, Medium::Picture);
    const Kinds sounds = kindsOf(program, Medium::Sound);
    if (!hasPicture(told) && !pictures.empty())
        return true;
    if (told.audioCode != 0 || sounds.empty())
        return false;
    // Sound without code tells nothing, however long one waits; only when there is nothing else to go by is
    // the instrument given its time.
    return pictures.empty() || any(sounds, Decoding::Told);
}

std::string textOf(const Presentation& presentation)
{
    const State picture = presentation.picture.state;
    const State sound = presentation.sound.state;
    if (picture == State::Untold)
        return "the instrument does not tell what it decodes";
    if (sound == State::Untold)
        return textOfPicture(presentation) + "; whether the sound (" + presentation.sound.codec
            + ") is decoded, the instrument does not tell";
    const bool seen = picture == State::Decoded;
    const bool heard = sound == State::Decoded;
    if (seen && heard)
        return "picture and sound";
    if (seen)
        return "picture only" + whyNoSound(presentation);
    if (heard)
        return "sound only" + whyNoPicture(presentation);
    return textOfNeither(presentation);
}

std::string wordOf(Presentation::State state)
{
    switch (state) {
    case State::Absent:
        return "absent";
    case State::Decoded:
        return "decoded";
    case State::Awaited:
        return "awaited";
    case State::Undecodable:
        return "undecodable";
    case State::Untold:
        return "untold";
    }
    return "";
}

std::string wordOf(Presentation::Scrambling scrambling)
{
    switch (scrambling) {
    case Scrambling::No:
        return "no";
    case Scrambling::Perhaps:
        return "perhaps";
    case Scrambling::Yes:
        return "yes";
    }
    return "";
}

} // namespace tessary::client
