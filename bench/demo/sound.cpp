#include "demo/sound.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tessary::observe {

namespace {

constexpr double pi = 3.14159265358979323846;

enum class Coding { Unknown, Integer16, Integer32, Float32 };

struct Format
{
    Coding coding = Coding::Unknown;
    unsigned channels = 0;
    unsigned sampleRate = 0;
    std::size_t frameSize = 0; ///< bytes of one sample of all channels
};

std::uint32_t littleEndian(const std::vector<char>& data, std::size_t offset, unsigned bytes)
{
    std::uint32_t value = 0;
    for (unsigned i = 0; i < bytes; ++i)
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(data.at(offset + i))) << 8U * i;
    return value;
}

Format readFormat(const std::vector<char>& data, std::size_t chunk)
{
    constexpr std::uint32_t pcm = 1;
    constexpr std::uint32_t ieeeFloat = 3;
    constexpr std::uint32_t extensible = 0xFFFE;
    std::uint32_t tag = littleEndian(data, chunk, 2);
    const unsigned bits = littleEndian(data, chunk + 14, 2);
    if (tag == extensible)
        tag = littleEndian(data, chunk + 24, 2);
    Format format;
    format.channels = littleEndian(data, chunk + 2, 2);
    format.sampleRate = littleEndian(data, chunk + 4, 4);
    format.frameSize = static_cast<std::size_t>(bits / 8) * format.channels;
    if (tag == pcm && bits == 16)
        format.coding = Coding::Integer16;
    else if (tag == pcm && bits == 32)
        format.coding = Coding::Integer32;
    else if (tag == ieeeFloat && bits == 32)
        format.coding = Coding::Float32;
    return format;
}

float sampleAt(const std::vector<char>& data, std::size_t offset, Coding coding)
{
    if (coding == Coding::Integer16)
        return static_cast<float>(static_cast<std::int16_t>(littleEndian(data, offset, 2))) / 32768.0F;
    const std::uint32_t word = littleEndian(data, offset, 4);
    if (coding == Coding::Integer32)
        return static_cast<float>(static_cast<std::int32_t>(word)) / 2147483648.0F;
    float value = 0;
    std::memcpy(&value, &word, sizeof value);
    return value;
}

std::vector<char> readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("there is no sound " + path + "; the loudspeaker has played nothing yet");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Power of one frequency in the samples under a Hann window (Goertzel), as the mean square of a sine of that
/// frequency.
double powerAt(const std::vector<float>& samples, double hertz, double sampleRate)
{
    const double coefficient = 2 * std::cos(2 * pi * hertz / sampleRate);
    const auto count = static_cast<double>(samples.size());
    double previous = 0;
    double beforePrevious = 0;
    double window = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double weight = 0.5 - 0.5 * std::cos(2 * pi * static_cast<double>(i) / count);
        const double current =
            weight * static_cast<double>(samples[i]) + coefficient * previous - beforePrevious;
        beforePrevious = previous;
        previous = current;
        window += weight;
    }
    const double power =
        previous * previous + beforePrevious * beforePrevious - coefficient * previous * beforePrevious;
    return 2 * power / (window * window);
}

double meanSquare(const std::vector<float>& samples)
{
    double sum = 0;
    for (const float sample : samples)
        sum += static_cast<double>(sample) * static_cast<double>(sample);
    return samples.empty() ? 0.0 : sum / static_cast<double>(samples.size());
}

/// The frequency of the strongest tone between two limits, sought in steps.
double strongestBetween(
    const std::vector<float>& samples, double sampleRate, double from, double to, double step)
{
    double best = from;
    double bestPower = -1;
    const int steps = static_cast<int>((to - from) / step);
    for (int i = 0; i <= steps; ++i) {
        const double hertz = from + step * i;
        const double power = powerAt(samples, hertz, sampleRate);
        if (power > bestPower) {
            bestPower = power;
            best = hertz;
        }
    }
    return best;
}

} // namespace

Sound readWav(const std::string& path)
{
    const std::vector<char> data = readFile(path);
    constexpr std::size_t riffHeader = 12;
    const auto isAt = [&](std::size_t offset, const char* id) {
        return std::memcmp(&data[offset], id, 4) == 0;
    };
    if (data.size() < riffHeader || !isAt(0, "RIFF") || !isAt(8, "WAVE"))
        throw std::runtime_error(path + " is not a WAVE file");
    Format format;
    for (std::size_t chunk = riffHeader; chunk + 8 <= data.size();) {
        const std::size_t body = chunk + 8;
        const std::size_t size = littleEndian(data, chunk + 4, 4);
        if (isAt(chunk, "data")) {
            if (format.coding == Coding::Unknown || format.frameSize == 0)
                throw std::runtime_error(path + " has samples in a format that is not read here");
            const std::size_t left = data.size() - body;
            // A file that is not closed yet has no size, or that of an earlier moment.
            const std::size_t frames = left / format.frameSize;
            Sound sound;
            sound.sampleRate = format.sampleRate;
            sound.samples.reserve(frames);
            for (std::size_t frame = 0; frame < frames; ++frame)
                sound.samples.push_back(sampleAt(data, body + frame * format.frameSize, format.coding));
            return sound;
        }
        if (isAt(chunk, "fmt ") && size >= 16)
            format = readFormat(data, body);
        chunk = body + size + size % 2;
    }
    throw std::runtime_error(path + " has no samples yet");
}

void writeWav(const std::string& path, const Sound& sound)
{
    std::ofstream file(path, std::ios::binary);
    const auto put = [&file](std::uint32_t value, unsigned bytes) {
        for (unsigned i = 0; i < bytes; ++i)
            file.put(static_cast<char>(value >> 8U * i));
    };
    const auto dataSize = static_cast<std::uint32_t>(sound.samples.size() * 2);
    file << "RIFF";
    put(36 + dataSize, 4);
    file << "WAVEfmt ";
    put(16, 4);
    put(1, 2); // PCM
    put(1, 2); // channels
    put(sound.sampleRate, 4);
    put(sound.sampleRate * 2, 4);
    put(2, 2);
    put(16, 2);
    file << "data";
    put(dataSize, 4);
    for (const float sample : sound.samples) {
        const float limited = std::clamp(sample, -1.0F, 1.0F) * 32767.0F;
        put(static_cast<std::uint16_t>(static_cast<std::int16_t>(std::lround(limited))), 2);
    }
    if (!file.flush())
        throw std::runtime_error("cannot write " + path + "; check the folder and the free space");
}

Tone strongestTone(const Sound& sound, double seconds)
{
    const auto wanted = static_cast<std::size_t>(seconds * sound.sampleRate);
    const std::size_t count = std::min(wanted, sound.samples.size());
    const std::vector<float> stretch(
        sound.samples.end() - static_cast<std::ptrdiff_t>(count), sound.samples.end());
    const double power = meanSquare(stretch);
    constexpr double silence = 1e-7; // mean square; 70 dB below full scale
    if (count < sound.sampleRate / 10 || power < silence)
        return {};
    // A tenth of a second resolves 10 Hz: enough to find the tone, cheap enough to try every 5 Hz.
    const std::vector<float> newest(stretch.end() - sound.sampleRate / 10, stretch.end());
    const double rate = sound.sampleRate;
    const double coarse = strongestBetween(newest, rate, 50, 5000, 5);
    const double fine = strongestBetween(stretch, rate, std::max(coarse - 10, 20.0), coarse + 10, 0.5);
    return {fine, std::min(powerAt(stretch, fine, rate) / power, 1.0)};
}

} // namespace tessary::observe
