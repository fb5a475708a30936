#pragma once

#include <cstddef>
#include <string_view>

namespace tessary::client {

/// How the end of an answer is known.
enum class AnswerEnd {
    None, ///< the command has no answer
    LineFeed, ///< one line of text
    Fixed, ///< Request::size bytes
    Values, ///< Request::size bytes, or the shorter line "not connected\n"
    Mark, ///< it does not tell, or there may be none: an EndMark behind it does
};

/// One command the controller can send.
struct Request
{
    const char* word; ///< what the daemon matches, argument excluded
    AnswerEnd answer;
    bool mayBeSilent; ///< a healthy daemon may have nothing to say (no scan yet, no such table)
    std::size_t size = 0; ///< bytes of an answer with a fixed size
};

/// What measurement and interface queries answer while the Ethernet link is down.
inline constexpr std::string_view notConnectedLine = "not connected\n";

namespace request {

// One row per command, in the order of the daemon's table. A command with an argument takes it directly after
// the word.
inline constexpr Request interfaceAddress{"interface?", AnswerEnd::LineFeed, false};
inline constexpr Request setInterface{"interface=", AnswerEnd::None, true};
inline constexpr Request getServer{
    "server?", AnswerEnd::None, true}; // the daemon is meant to stay silent here
inline constexpr Request setServer{"server=", AnswerEnd::None, true};
inline constexpr Request scan{"scancur", AnswerEnd::None, true};
inline constexpr Request streamInfo{"streaminfo?", AnswerEnd::Mark, true};
inline constexpr Request playerStatus{"videostatus?", AnswerEnd::Mark, true};
inline constexpr Request networkInformation{"getnit?", AnswerEnd::Mark, true};
inline constexpr Request programMap{"getpmt?", AnswerEnd::Mark, true};
inline constexpr Request play{"play=", AnswerEnd::None, true};
inline constexpr Request interArrivalTimes{"getiat?", AnswerEnd::Mark, true};
inline constexpr Request measurement{"getethernetmes?", AnswerEnd::Values, false, 28};
inline constexpr Request ping{"ping", AnswerEnd::Mark, true};
inline constexpr Request version{"version?", AnswerEnd::LineFeed, false};
inline constexpr Request update{"update", AnswerEnd::LineFeed, false};
inline constexpr Request sendStream{"sendts", AnswerEnd::None, true};
inline constexpr Request t2miFrame{"t2miframe?", AnswerEnd::Mark, true};
inline constexpr Request ipStatus{"ipstatus?", AnswerEnd::Mark, true};
inline constexpr Request ebsScan{"!07_S_&", AnswerEnd::None, true};
inline constexpr Request ebsPlay{"!0C_D_IX:", AnswerEnd::Fixed, false, 8};
inline constexpr Request ebsServiceName{"!0C_L_IX:", AnswerEnd::Mark, false};
inline constexpr Request ebsStatus{"!07_A_&", AnswerEnd::Mark, false};
inline constexpr Request ebsInfo{"!07_E_&", AnswerEnd::Fixed, false, 50};
inline constexpr Request ebsAudioLevel{"!16_O_AX:", AnswerEnd::Fixed, false, 7};
inline constexpr Request ebsVersion{"!07_V_&", AnswerEnd::LineFeed, false};
inline constexpr Request record{"PVR_record", AnswerEnd::None, true};
inline constexpr Request stopRecording{"PVR_stop", AnswerEnd::None, true};
inline constexpr Request scanRecording{"PVR_scan", AnswerEnd::None, true};
inline constexpr Request recordingSize{"PVR_reclist", AnswerEnd::Mark, false};
inline constexpr Request exportRecording{"PVR_export", AnswerEnd::LineFeed, false};
inline constexpr Request startDab{"START_DAB", AnswerEnd::None, true};
inline constexpr Request stopDab{"STOP_DAB", AnswerEnd::None, true};
inline constexpr Request dab{"dab", AnswerEnd::Fixed, true, 117};
inline constexpr Request command{"command:", AnswerEnd::None, true};

/// All of them.
inline constexpr const Request* all[] = {&interfaceAddress, &setInterface, &getServer, &setServer, &scan,
    &streamInfo, &playerStatus, &networkInformation, &programMap, &play, &interArrivalTimes, &measurement,
    &ping, &version, &update, &sendStream, &t2miFrame, &ipStatus, &ebsScan, &ebsPlay, &ebsServiceName,
    &ebsStatus, &ebsInfo, &ebsAudioLevel, &ebsVersion, &record, &stopRecording, &scanRecording,
    &recordingSize, &exportRecording, &startDab, &stopDab, &dab, &command};

} // namespace request

} // namespace tessary::client
