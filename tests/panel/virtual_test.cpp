#include "client/panel/display.h"
#include "client/panel/followedfile.h"
#include "client/panel/sound.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <stdexcept>

namespace {

using namespace tessary::panel;
namespace fs = std::filesystem;
using std::chrono::milliseconds;

class Folder
{
public:
    Folder()
    {
        std::string form = "/tmp/panel-virtual-XXXXXX";
        if (::mkdtemp(form.data()) == nullptr)
            throw std::runtime_error("no folder");
        path = form;
    }
    ~Folder() { fs::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    void write(const std::string& name, const std::string& bytes, bool append = false) const
    {
        std::ofstream(path / name, append ? std::ios::binary | std::ios::app : std::ios::binary) << bytes;
    }

    fs::path path;
};

std::string green(int width, int height)
{
    std::string ppm = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
    for (int i = 0; i < width * height; ++i)
        ppm += std::string("\x00\xc0\x00", 3);
    return ppm;
}

TEST(PanelDisplay, PacksAPicture)
{
    const std::string jpeg = jpegOf(green(64, 32), 80);
    ASSERT_EQ(jpeg.substr(0, 3), "\xff\xd8\xff");
    jpeg_decompress_struct state{};
    jpeg_error_mgr errors{};
    state.err = ::jpeg_std_error(&errors);
    ::jpeg_create_decompress(&state);
    ::jpeg_mem_src(&state, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
    ::jpeg_read_header(&state, TRUE);
    EXPECT_EQ(state.image_width, 64U);
    EXPECT_EQ(state.image_height, 32U);
    ::jpeg_destroy_decompress(&state);
}

TEST(PanelDisplay, WhatIsNoWholePictureIsNone)
{
    const std::string whole = green(8, 8);
    for (const std::string& bytes : {std::string(), whole.substr(0, whole.size() - 1),
             std::string("P6\n99999 99999\n255\n"), std::string("P5\n1 1\n255\nxxx")})
        EXPECT_TRUE(jpegOf(bytes, 80).empty());
}

TEST(PanelDisplay, AsksForPicturesOnlyWhileSomebodyLooks)
{
    const Folder folder;
    {
        Display display(folder.path);
        EXPECT_EQ(display.now().number, 0U);
        EXPECT_TRUE(fs::exists(folder.path / "display.watched"));
        folder.write("display.ppm", green(8, 8));
        const auto first = display.now();
        EXPECT_EQ(first.number, 1U);
        EXPECT_EQ(display.now().jpeg, first.jpeg); // packed once
    }
    EXPECT_FALSE(fs::exists(folder.path / "display.watched"));
}

/// Head of a WAV file of 16 bit as ALSA writes it.
std::string wavHead(int rate, int channels)
{
    const auto little = [](unsigned value, int bytes) {
        std::string text;
        for (int i = 0; i < bytes; ++i)
            text.push_back(static_cast<char>(value >> (8 * i) & 0xFFU));
        return text;
    };
    return "RIFF" + little(0, 4) + "WAVEfmt " + little(16, 4) + little(1, 2)
        + little(static_cast<unsigned>(channels), 2) + little(static_cast<unsigned>(rate), 4) + little(0, 4)
        + little(0, 2) + little(16, 2) + "data" + little(0, 4);
}

TEST(PanelSound, GivesWhatComesFromNowOn)
{
    const Folder folder;
    folder.write("sound.wav", wavHead(44100, 2) + "oldsound");
    Sound sound(folder.path / "sound.wav");
    ASSERT_TRUE(sound.format().has_value());
    EXPECT_EQ(sound.format()->rate, 44100);
    EXPECT_EQ(sound.format()->channels, 2);
    EXPECT_EQ(sound.next(milliseconds(0)), "");
    folder.write("sound.wav", "newsoundha", true); // the last sample is not whole
    EXPECT_EQ(sound.next(milliseconds(0)), "newsound");
    folder.write("sound.wav", "lf", true);
    EXPECT_EQ(sound.next(milliseconds(0)), "half");
    folder.write("sound.wav", wavHead(48000, 1)); // begins anew
    EXPECT_FALSE(sound.next(milliseconds(0)).has_value());
}

TEST(PanelSound, WithoutSoundThereIsNoFormat)
{
    const Folder folder;
    EXPECT_FALSE(Sound(folder.path / "sound.wav").format().has_value());
    folder.write("sound.wav", "RIFF");
    EXPECT_FALSE(Sound(folder.path / "sound.wav").format().has_value());
}

TEST(PanelLogs, WholeLinesAreToldOnce)
{
    using Lines = std::vector<std::string>;
    const Folder folder;
    FollowedFile file(folder.path / "log");
    EXPECT_EQ(file.newLines(), Lines());
    folder.write("log", "one\ntw");
    EXPECT_EQ(file.newLines(), Lines{"one"});
    folder.write("log", "o\nthree\n", true);
    EXPECT_EQ(file.newLines(), (Lines{"two", "three"}));
    folder.write("log", "new\n"); // the instrument has started again
    EXPECT_EQ(file.newLines(), Lines{"new"});
}

} // namespace
