#pragma once

#include "demo/picture.h"

#include <string>

/// Whether display and loudspeaker give what a program should show and sound.
namespace tessary::observe {

/// What was found, in words, and whether it is right. A file that is not there yet, or is none yet, is not.
struct Judgement
{
    bool right = false;
    std::string words;
};

/// More than half of the picture (PPM) has this colour, as closely as a lossy coder keeps it.
Judgement judgePicture(const std::string& path, Rgb colour);

/// The last `seconds` of the sound (WAVE), which is at least `longEnough` seconds long, are this tone.
Judgement judgeSound(const std::string& path, double hertz, double seconds, double longEnough = 0);

} // namespace tessary::observe
