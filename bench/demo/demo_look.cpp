// Looks and listens whether what comes out of the virtual instrument is what a program should show and sound.

#include "demo/judge.h"
#include "demo/sound.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace tessary;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr double cleanSeconds = 3; // of sound that the tone must have filled, so that it is no mere beginning

constexpr const char* usage =
    R"(usage: demo-look --picture RRGGBB|none --tone HZ [--name NAME] [--wait SECONDS] [--run-dir DIR] [--out DIR]
  --picture  colour that most of the picture must have, or none: no picture may be shown
  --tone     frequency of the tone that must be heard
  --name     how the files of picture and sound are called (default: program)
  --wait     how long picture and sound may take to become right (default: 30)
  --run-dir  run directory of the virtual instrument
  --out      where picture and sound are left)";

struct Options
{
    std::string name = "program";
    std::optional<observe::Rgb> colour; ///< nothing: no picture
    double hertz = 0;
    double wait = 30; ///< seconds
    fs::path runDir = "/run/tessary-instrument";
    fs::path out = ".";
};

[[noreturn]] void refuse(const std::string& what)
{
    throw std::invalid_argument(what + "\n" + usage);
}

double numberIn(const std::string& text)
{
    std::size_t length = 0;
    double number = -1;
    try {
        number = std::stod(text, &length);
    } catch (const std::exception&) {
        length = std::string::npos;
    }
    if (length != text.size() || !std::isfinite(number) || number < 0)
        refuse("no number: " + text);
    return number;
}

std::optional<observe::Rgb> colourIn(const std::string& text)
{
    if (text == "none")
        return std::nullopt;
    if (!std::regex_match(text, std::regex("[0-9a-fA-F]{6}")))
        refuse("no colour: " + text);
    const unsigned long value = std::stoul(text, nullptr, 16);
    const auto channel = [value](
                             unsigned shift) { return static_cast<std::uint8_t>(value >> shift & 0xFFU); };
    return observe::Rgb{channel(16), channel(8), channel(0)};
}

Options parse(int argc, char** argv)
{
    Options options;
    bool picture = false;
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        if (i + 1 == argc)
            refuse(name + " needs a value, or is no option");
        const std::string value = argv[i + 1];
        if (name == "--picture") {
            options.colour = colourIn(value);
            picture = true;
        } else if (name == "--tone")
            options.hertz = numberIn(value);
        else if (name == "--wait")
            options.wait = numberIn(value);
        else if (name == "--name")
            options.name = value;
        else if (name == "--run-dir")
            options.runDir = value;
        else if (name == "--out")
            options.out = value;
        else
            refuse("no option: " + name);
    }
    if (!picture || options.hertz <= 0)
        refuse("--picture and --tone are needed");
    return options;
}

observe::Judgement withVerdict(observe::Judgement found)
{
    found.words += found.right ? ": right" : ": WRONG";
    return found;
}

/// Pictures that the display has shown since the program was chosen.
unsigned long framesShown(const Options& options)
{
    std::ifstream file(options.runDir / "io/display.json");
    std::stringstream text;
    text << file.rdbuf();
    std::smatch found;
    const std::string report = text.str();
    return std::regex_search(report, found, std::regex(R"("frames":([0-9]+))")) ? std::stoul(found[1]) : 0;
}

observe::Judgement lookAtPicture(const Options& options)
{
    if (options.colour.has_value())
        return withVerdict(
            observe::judgePicture((options.runDir / "io/display.ppm").string(), *options.colour));
    const unsigned long frames = framesShown(options);
    return withVerdict({frames == 0, std::to_string(frames) + " pictures shown, none expected"});
}

observe::Judgement listenToSound(const Options& options)
{
    return withVerdict(
        observe::judgeSound((options.runDir / "io/sound.wav").string(), options.hertz, 1.0, cleanSeconds));
}

/// The picture as the display shows it, as PNG where ffmpeg can make one. Nothing without a picture.
fs::path keepPicture(const Options& options)
{
    if (!options.colour.has_value() || !fs::exists(options.runDir / "io/display.ppm"))
        return {};
    fs::path ppm = options.out / (options.name + ".ppm");
    fs::path png = options.out / (options.name + ".png");
    fs::copy_file(options.runDir / "io/display.ppm", ppm, fs::copy_options::overwrite_existing);
    const std::string convert =
        "ffmpeg -hide_banner -nostdin -loglevel error -y -i '" + ppm.string() + "' '" + png.string() + "'";
    if (std::system(convert.c_str()) != 0) // NOLINT(cert-env33-c): fixed command, own paths
        return ppm;
    fs::remove(ppm);
    return png;
}

fs::path keepSound(const Options& options)
{
    if (!fs::exists(options.runDir / "io/sound.wav"))
        return {};
    fs::path wav = options.out / (options.name + ".wav");
    observe::writeWav(wav.string(), observe::readWav((options.runDir / "io/sound.wav").string()));
    return wav;
}

/// Waits for picture and sound to become right; what was found last is told and kept.
bool lookAndListen(const Options& options)
{
    const auto deadline = Clock::now() + std::chrono::duration<double>(options.wait);
    observe::Judgement heard;
    observe::Judgement seen;
    do {
        heard = listenToSound(options);
        seen = lookAtPicture(options);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    } while (!(heard.right && seen.right) && Clock::now() < deadline);
    std::cout << "\npicture  " << keepPicture(options).string() << "\n    " << seen.words << "\nsound    "
              << keepSound(options).string() << "\n    " << heard.words << '\n';
    return heard.right && seen.right;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = parse(argc, argv);
        fs::create_directories(options.out);
        const bool right = lookAndListen(options);
        std::cout << '\n' << options.name << (right ? " is playing\n" : " is NOT playing as it should\n");
        return right ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::invalid_argument& error) {
        std::cerr << "demo-look: " << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "demo-look: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
