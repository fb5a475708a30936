#pragma once

#include <cstddef>

namespace tessary::client {

/// How the end of an answer is known.
enum class AnswerEnd {
    None, ///< the command has no answer
    LineFeed, ///< one line of text
    Words, ///< one of a few fixed words without terminator
    Section, ///< one PSI section, ended by its own section_length
    Silence, ///< no terminator and no length: over when the line falls silent
};

/// One command the controller can send.
struct Request
{
    const char* word; ///< what the daemon matches, argument excluded
    AnswerEnd answer;
    bool mayBeSilent; ///< a healthy daemon may have nothing to say (no scan yet, no such table)
};

namespace request {

// One row per command. A command with an argument takes it directly after the word.
inline constexpr Request version{"version?", AnswerEnd::LineFeed, false};
inline constexpr Request setServer{"server=", AnswerEnd::None, true};
inline constexpr Request getServer{
    "server?", AnswerEnd::None, true}; // the daemon is meant to stay silent here
inline constexpr Request scan{"scancur", AnswerEnd::None, true};
inline constexpr Request streamInfo{"streaminfo?", AnswerEnd::Silence, true};
inline constexpr Request networkInformation{"getnit?", AnswerEnd::Silence, true};
inline constexpr Request programMap{"getpmt?", AnswerEnd::Section, true};
inline constexpr Request play{"play=", AnswerEnd::None, true};
inline constexpr Request playerStatus{"videostatus?", AnswerEnd::Words, true};
inline constexpr Request sendStream{"sendts", AnswerEnd::None, true};
inline constexpr Request t2miFrame{"t2miframe?", AnswerEnd::Silence, true};
inline constexpr Request scanRecording{"PVR_scan", AnswerEnd::None, true};

} // namespace request

} // namespace tessary::client
