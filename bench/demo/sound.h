#pragma once

#include <string>
#include <vector>

namespace tessary::observe {

/// What the loudspeaker got, first channel only.
struct Sound
{
    unsigned sampleRate = 0; ///< Hz
    std::vector<float> samples; ///< -1 to 1

    double seconds() const
    {
        return sampleRate == 0 ? 0.0 : static_cast<double>(samples.size()) / sampleRate;
    }
};

/// Reads a RIFF/WAVE file of 16- or 32-bit integer or 32-bit float samples. A file that is still being
/// written has sizes in its header that are too small or 0: the samples then reach to the end of the file.
/// Throws std::runtime_error naming the file and what is wrong with it.
Sound readWav(const std::string& path);

/// Writes 16-bit mono. Throws std::runtime_error when the file can not be written.
void writeWav(const std::string& path, const Sound& sound);

/// The strongest tone of a stretch of sound.
struct Tone
{
    double hertz = 0;
    double share =
        0; ///< of the stretch's power that is this one tone, 0 to 1; near 1 for a pure tone, 0 for silence
};

/// The strongest tone between 50 and 5000 Hz in the last `seconds` of the sound, to 0.5 Hz.
/// Silence and a sound shorter than a tenth of a second give no tone (0 Hz).
Tone strongestTone(const Sound& sound, double seconds = 1.0);

} // namespace tessary::observe
