// A controller's session with the instrument while demo.ts is on the air at UDP 239.0.0.1 port 1234: selects
// the stream, lists what is in it, plays program 2 and looks and listens whether that is what comes out.

#include "client/controller.h"
#include "client/lineerror.h"
#include "demo/picture.h"
#include "demo/report.h"
#include "demo/sound.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace tessary;
using client::Milliseconds;
namespace fs = std::filesystem;

// Program 2 of demo.ts: a green field with a white digit, and a tone.
constexpr int programNumber = 2;
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
            throw std::invalid_argument("usage: demo-session [--run-dir DIR] [--out DIR]\n"
                                        "  --run-dir  run directory of the virtual instrument\n"
                                        "  --out      where picture and sound of program 2 are left");
        (name == "--run-dir" ? options.runDir : options.out) = argv[++i];
    }
    return options;
}

void show(const std::string& command, const std::string& answer = {})
{
    std::cout << "\n> " << command << '\n';
    if (!answer.empty())
        std::cout << "    " << answer << '\n';
    std::cout << std::flush;
}

/// Asks again until an answer comes: tables arrive with the stream, pictures with the decoder.
client::Bytes askUntilThere(const std::function<client::Bytes()>& ask, const std::string& what)
{
    constexpr int tries = 10;
    for (int i = 0; i < tries; ++i) {
        client::Bytes answer = ask();
        if (!answer.empty())
            return answer;
        std::this_thread::sleep_for(Milliseconds(300));
    }
    throw std::runtime_error("no " + what + " came within the time; is the stream on the air?");
}

void selectAndList(client::Controller& controller)
{
    const client::StreamServer server{client::StreamServer::Protocol::Udp, "239.0.0.1", 1234, 0, 0};
    show("server=" + server.text());
    controller.setServer(server);
    show("scancur");
    controller.scan();
    const auto sdt = askUntilThere([&] { return controller.streamInfo(); }, "SDT");
    show("streaminfo?", std::to_string(sdt.size()) + " bytes of SDT");
    demo::printServices(std::cout, demo::readServices(sdt));
    const auto nit = askUntilThere([&] { return controller.networkInformation(); }, "NIT");
    show("getnit?", std::to_string(nit.size()) + " bytes of NIT");
    demo::printNetwork(std::cout, demo::readNetwork(nit));
    // The answer is the PMT of the program that was chosen last; a fresh source knows of none and stays
    // silent.
    const bool silent = controller.programMap().empty();
    show("getpmt?",
        silent ? "no answer: no program has been chosen yet" : "a PMT, although no program was chosen");
}

bool play(client::Controller& controller)
{
    show("play=" + std::to_string(programNumber));
    controller.play(programNumber);
    const auto pmt = askUntilThere([&] { return controller.programMap(); }, "PMT");
    show("getpmt?", std::to_string(pmt.size()) + " bytes of PMT");
    const client::ProgramMap program = demo::readProgram(pmt);
    demo::printProgram(std::cout, program);
    const std::string status = controller.playerStatus();
    show("videostatus?", status);
    return status == "running" && program.programNumber == programNumber;
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

int session(const Options& options)
{
    fs::create_directories(options.out);
    client::SerialLine line(options.runDir / "controller");
    client::Controller controller(line);
    std::cout << "controller on " << line.path() << '\n';
    controller.waitForGreeting(Milliseconds(60000));
    show("(start)", "HELLO !");
    show("version?", controller.version());
    selectAndList(controller);
    const bool playing = play(controller);
    std::this_thread::sleep_for(std::chrono::seconds(5));
    const bool seen = lookAtPicture(options);
    const bool heard = listenToSound(options);
    std::cout << (playing && seen && heard ? "\nprogram 2 is playing\n"
                                           : "\nprogram 2 is NOT playing as it should\n");
    return playing && seen && heard ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return session(parse(argc, argv));
    } catch (const std::invalid_argument& error) {
        std::cerr << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "demo-session: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
