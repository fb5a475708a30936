#pragma once

#include <string>

namespace tessary::client {

/// The answer to "!07_A_&".
struct EbsStatus
{
    int programs = 0; ///< found by the scan
    int selected = 0; ///< the index last given to "!0C_D_IX:", as sent
};

/// The answer to "!07_E_&": what the decoder is about to decode. 0 is unknown.
struct EbsDecoderInfo
{
    int videoCode = 0;
    int width = 0; ///< pixels
    int height = 0; ///< pixels
    int audioCode = 0;
};

/// A service index as the EBS frames carry it: two hexadecimal digits. `index` is 0 to 255.
std::string ebsIndex(int index);

/// "*17_a.FL:02_NS:0c$_DS:05". Throws AnswerError for another text.
EbsStatus parseEbsStatus(const std::string& frame);

/// "*32_e.DI:000f_0780_0438_0000_0007_0000_0000_0000_$". Throws AnswerError for another text.
EbsDecoderInfo parseEbsDecoderInfo(const std::string& frame);

/// What a person calls the codes; "unknown" for 0, "code N" for one that is not in the list.
std::string ebsVideoName(int code);
std::string ebsAudioName(int code);

} // namespace tessary::client
