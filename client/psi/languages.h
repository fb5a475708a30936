#pragma once

#include "client/psi/tables.h"

#include <string>
#include <vector>

namespace tessary::client {

/// A language that an elementary stream is announced to have.
struct Language
{
    std::string code; ///< as carried: three letters of ISO 639-2, for example "deu"
    std::string use; ///< what it is for, for example "hearing impaired", "teletext page 888"; empty for most
};

/// From the descriptors of an elementary stream: ISO_639_language (ISO/IEC 13818-1, 2.6.18), teletext, VBI
/// teletext, subtitling, supplementary audio and TTML subtitling (ETSI EN 300 468, 6.2 and 6.4; EN 303 560).
/// In their order; descriptors that are too short are passed over.
std::vector<Language> languagesOf(const std::vector<Descriptor>& descriptors);

/// "ita (teletext page 777), eng"; empty without languages.
std::string textOf(const std::vector<Language>& languages);

} // namespace tessary::client
