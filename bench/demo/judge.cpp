#include "demo/judge.h"

#include "demo/sound.h"

#include <cmath>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace tessary::observe {

namespace {

constexpr int colourTolerance = 40; // levels; the picture went through a lossy coder and a colour conversion
constexpr double mostOfThePicture = 0.5;
constexpr double hertzTolerance = 5;
constexpr double pureShare = 0.8;

} // namespace

Judgement judgePicture(const std::string& path, Rgb colour)
try {
    const Picture picture = readPpm(path);
    double share = 0;
    const Rgb seen = dominantColour(picture, &share);
    std::ostringstream words;
    words << picture.width << 'x' << picture.height << ", " << std::lround(share * 100) << " % of it "
          << colourText(seen) << ", expected " << colourText(colour);
    return {isNear(seen, colour, colourTolerance) && share > mostOfThePicture, words.str()};
} catch (const std::runtime_error& error) {
    return {false, error.what()};
}

Judgement judgeSound(const std::string& path, double hertz, double seconds, double longEnough)
try {
    const Sound sound = readWav(path);
    const Tone tone = strongestTone(sound, seconds);
    std::ostringstream words;
    words << std::fixed << std::setprecision(1) << sound.seconds() << " s, tone of " << tone.hertz
          << " Hz, expected " << hertz << " Hz";
    const bool right = std::abs(tone.hertz - hertz) <= hertzTolerance && tone.share > pureShare;
    return {right && sound.seconds() >= longEnough, words.str()};
} catch (const std::runtime_error& error) {
    return {false, error.what()};
}

} // namespace tessary::observe
