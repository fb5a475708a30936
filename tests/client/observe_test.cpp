#include "demo/picture.h"
#include "demo/sound.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>

using namespace tessary::observe;

namespace {

/// A file of the running test that is gone after it.
class TemporaryFile
{
public:
    explicit TemporaryFile(const std::string& ending)
        : m_path(testing::TempDir() + "observe-" + std::to_string(std::random_device{}()) + ending)
    {
    }
    ~TemporaryFile() { std::filesystem::remove(m_path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return m_path; }
    void write(const std::string& bytes) const { std::ofstream(m_path, std::ios::binary) << bytes; }

private:
    std::string m_path;
};

Sound sine(double hertz, double amplitude, double seconds)
{
    Sound sound;
    sound.sampleRate = 48000;
    for (int i = 0; i < static_cast<int>(seconds * 48000); ++i)
        sound.samples.push_back(
            static_cast<float>(amplitude * std::sin(2 * 3.14159265358979 * hertz * i / 48000)));
    return sound;
}

TEST(Picture, HasTheColourOfMostOfItDespiteNoiseAndADigit)
{
    Picture picture{100, 100, {}};
    std::mt19937 random(7);
    std::uniform_int_distribution<int> noise(-12, 12);
    for (int i = 0; i < 10000; ++i) {
        const auto level = static_cast<std::uint8_t>(0xC0 + noise(random));
        picture.pixels.push_back(i % 10 == 0 ? Rgb{255, 255, 255} : Rgb{3, level, 2});
    }
    double share = 0;
    const Rgb colour = dominantColour(picture, &share);
    EXPECT_TRUE(isNear(colour, {0, 0xC0, 0}, 6)) << colourText(colour);
    EXPECT_NEAR(share, 0.9, 0.02);
    EXPECT_FALSE(isNear(colour, {255, 0, 0}, 60));
}

TEST(Picture, IsReadFromAPpmFileWithAComment)
{
    const TemporaryFile file(".ppm");
    file.write(std::string("P6\n# display\n2 1\n255\n\x01\x02\x03\xFF\xFE\xFD", 27));
    const Picture picture = readPpm(file.path());
    EXPECT_EQ(picture.width, 2U);
    EXPECT_EQ(picture.height, 1U);
    EXPECT_EQ(colourText(picture.pixels.at(1)), "#fffefd");
}

TEST(Picture, OfAFileThatIsCutShortOrMissingIsAnError)
{
    const TemporaryFile file(".ppm");
    EXPECT_THROW(readPpm(file.path()), std::runtime_error);
    file.write("P6\n2 2\n255\nabc");
    EXPECT_THROW(readPpm(file.path()), std::runtime_error);
    file.write("P5\n2 2\n255\nabcd");
    EXPECT_THROW(readPpm(file.path()), std::runtime_error);
}

TEST(Sound, FindsTheToneToHalfAHertz)
{
    for (const double hertz : {440.0, 1000.0, 1700.0}) {
        const Tone tone = strongestTone(sine(hertz, 0.1, 2));
        EXPECT_NEAR(tone.hertz, hertz, 0.5);
        EXPECT_GT(tone.share, 0.95);
    }
}

TEST(Sound, TellsTheNewestToneWhenItChanged)
{
    Sound sound = sine(440, 0.5, 2);
    const Sound later = sine(1000, 0.1, 1.5);
    sound.samples.insert(sound.samples.end(), later.samples.begin(), later.samples.end());
    EXPECT_NEAR(strongestTone(sound).hertz, 1000, 0.5);
}

TEST(Sound, SilenceAndNoiseAreNoTone)
{
    EXPECT_EQ(strongestTone(sine(1000, 0, 2)).hertz, 0);
    EXPECT_EQ(strongestTone(sine(1000, 1, 0.05)).hertz, 0);
    EXPECT_EQ(strongestTone(Sound{}).hertz, 0);
    Sound noise{48000, {}};
    std::mt19937 random(7);
    std::uniform_real_distribution<float> level(-0.5F, 0.5F);
    for (int i = 0; i < 48000; ++i)
        noise.samples.push_back(level(random));
    EXPECT_LT(strongestTone(noise).share, 0.1);
}

TEST(Sound, IsReadAsItWasWrittenEvenWhenTheHeaderHasNoSizeYet)
{
    const TemporaryFile file(".wav");
    writeWav(file.path(), sine(1000, 0.5, 0.5));
    const Sound whole = readWav(file.path());
    EXPECT_EQ(whole.sampleRate, 48000U);
    ASSERT_EQ(whole.samples.size(), 24000U);
    EXPECT_NEAR(static_cast<double>(whole.samples[12]), 0.5, 0.001);
    std::fstream open(file.path(), std::ios::binary | std::ios::in | std::ios::out);
    open.seekp(40);
    open.write("\0\0\0\0", 4);
    open.close();
    EXPECT_EQ(readWav(file.path()).samples.size(), 24000U);
}

} // namespace
