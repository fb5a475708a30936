#include "client/psi/languages.h"

#include <array>
#include <cstdio>

namespace tessary::client {

namespace {

constexpr std::size_t codeSize = 3;

std::string codeAt(const Bytes& data, std::size_t at)
{
    const auto first = data.begin() + static_cast<std::ptrdiff_t>(at);
    return {first, first + codeSize};
}

/// audio_type (ISO/IEC 13818-1, table 2-60).
std::string audioUse(std::uint8_t type)
{
    switch (type) {
    case 1:
        return "clean effects";
    case 2:
        return "hearing impaired";
    case 3:
        return "visual impaired commentary";
    default:
        return {};
    }
}

/// teletext_type and page (ETSI EN 300 468, 6.2.43): magazine 0 is the eighth, the page number is BCD.
std::string teletextUse(std::uint8_t typeAndMagazine, std::uint8_t page)
{
    const unsigned type = typeAndMagazine >> 3U;
    const unsigned magazine = typeAndMagazine & 0x07U;
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s page %u%02x",
        type == 0x02       ? "teletext subtitles"
            : type == 0x05 ? "teletext subtitles for the hearing impaired"
                           : "teletext",
        magazine == 0 ? 8U : magazine, static_cast<unsigned>(page));
    return text.data();
}

/// subtitling_type (component_type of stream_content 3).
std::string subtitleUse(std::uint8_t type)
{
    return type >= 0x20 && type <= 0x26 ? "hearing impaired" : "";
}

/// editorial_classification of the supplementary_audio_descriptor (6.4.11).
std::string supplementaryUse(std::uint8_t flags)
{
    switch (flags >> 2U & 0x1FU) {
    case 0x01:
        return "audio description";
    case 0x02:
        return "clean audio for the hearing impaired";
    case 0x03:
        return "spoken subtitles";
    default:
        return {};
    }
}

void addExtended(std::vector<Language>& languages, const Bytes& data)
{
    constexpr std::uint8_t supplementaryAudio = 0x06;
    constexpr std::uint8_t ttmlSubtitling = 0x20;
    if (data.empty())
        return;
    if (data[0] == supplementaryAudio && data.size() >= 2 + codeSize && (data[1] & 0x01U) != 0)
        languages.push_back({codeAt(data, 2), supplementaryUse(data[1])});
    if (data[0] == ttmlSubtitling && data.size() >= 1 + codeSize)
        languages.push_back({codeAt(data, 1), ""});
}

} // namespace

std::vector<Language> languagesOf(const std::vector<Descriptor>& descriptors)
{
    std::vector<Language> languages;
    for (const auto& [tag, data] : descriptors) {
        switch (tag) {
        case 0x0A: // ISO_639_language
            for (std::size_t at = 0; at + 4 <= data.size(); at += 4)
                languages.push_back({codeAt(data, at), audioUse(data[at + 3])});
            break;
        case 0x46: // VBI_teletext
        case 0x56: // teletext
            for (std::size_t at = 0; at + 5 <= data.size(); at += 5)
                languages.push_back({codeAt(data, at), teletextUse(data[at + 3], data[at + 4])});
            break;
        case 0x59: // subtitling
            for (std::size_t at = 0; at + 8 <= data.size(); at += 8)
                languages.push_back({codeAt(data, at), subtitleUse(data[at + 3])});
            break;
        case 0x7F: // extension
            addExtended(languages, data);
            break;
        default:
            break;
        }
    }
    return languages;
}

std::string textOf(const std::vector<Language>& languages)
{
    std::string text;
    for (const Language& language : languages) {
        text += (text.empty() ? "" : ", ") + language.code;
        if (!language.use.empty())
            text += " (" + language.use + ")";
    }
    return text;
}

} // namespace tessary::client
