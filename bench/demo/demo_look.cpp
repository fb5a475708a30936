// Looks and listens whether it is program 2 of demo.ts that comes out of the virtual instrument.

#include "demo/picture.h"
#include "demo/sound.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using namespace tessary;
namespace fs = std::filesystem;

// Program 2 of demo.ts: a green field with a white digit, and a tone.
constexpr observe::Rgb programColour{0x00, 0xC0, 0x00};
constexpr int colourTolerance = 40; // levels; the picture went through a lossy coder and a colour conversion
constexpr double programHertz = 1000;
constexpr double hertzTolerance = 5;
constexpr double pureShare = 0.8;

struct Options
{
    fs::path runDir = "/run/tessary-instrument";
    fs::path out = ".";
};

Options parse(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if ((name != "--run-dir" && name != "--out") || i + 1 == argc)
            throw std::invalid_argument("usage: demo-look [--run-dir DIR] [--out DIR]\n"
                                        "  --run-dir  run directory of the virtual instrument\n"
                                        "  --out      where picture and sound of program 2 are left");
        (name == "--run-dir" ? options.runDir : options.out) = argv[++i];
    }
    return options;
}

bool lookAtPicture(const Options& options)
{
    const fs::path ppm = options.out / "program2.ppm";
    const fs::path png = options.out / "program2.png";
    fs::copy_file(options.runDir / "io/display.ppm", ppm, fs::copy_options::overwrite_existing);
    const observe::Picture picture = observe::readPpm(ppm.string());
    double share = 0;
    const observe::Rgb colour = observe::dominantColour(picture, &share);
    const bool right = observe::isNear(colour, programColour, colourTolerance) && share > 0.5;
    const std::string convert =
        "ffmpeg -hide_banner -nostdin -loglevel error -y -i '" + ppm.string() + "' '" + png.string() + "'";
    const bool converted =
        std::system(convert.c_str()) == 0; // NOLINT(cert-env33-c): fixed command, own paths
    if (converted)
        fs::remove(ppm);
    std::cout << "\npicture  " << (converted ? png : ppm).string() << "\n    " << picture.width << 'x'
              << picture.height << ", " << std::lround(share * 100) << " % of it "
              << observe::colourText(colour) << ", program 2 is " << observe::colourText(programColour)
              << (right ? ": right\n" : ": WRONG\n");
    return right;
}

bool listenToSound(const Options& options)
{
    const fs::path wav = options.out / "program2.wav";
    const observe::Sound sound = observe::readWav((options.runDir / "io/sound.wav").string());
    observe::writeWav(wav.string(), sound);
    const observe::Tone tone = observe::strongestTone(sound);
    const bool right = std::abs(tone.hertz - programHertz) <= hertzTolerance && tone.share > pureShare;
    std::cout << "sound    " << wav.string() << "\n    " << std::fixed << std::setprecision(1)
              << sound.seconds() << " s, tone of " << tone.hertz << " Hz, program 2 has " << programHertz
              << (right ? " Hz: right\n" : " Hz: WRONG\n");
    return right;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = parse(argc, argv);
        fs::create_directories(options.out);
        const bool seen = lookAtPicture(options);
        const bool heard = listenToSound(options);
        std::cout << (seen && heard ? "\nprogram 2 is playing\n"
                                    : "\nprogram 2 is NOT playing as it should\n");
        return seen && heard ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::invalid_argument& error) {
        std::cerr << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "demo-look: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
