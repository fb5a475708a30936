// Frames and blocks: dab, ebs.
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/jsonvalue.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/waiting.h"

#include <iostream>

namespace tessary::ctl {

using namespace client;

namespace {

using Clock = std::chrono::steady_clock;

std::string textOf(const Bytes& bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

// A start lets 3.2 s pass before it looks for the receiver, and gives up after 80 attempts of 0.5 s; a stop
// takes 4 s. A command that returns sooner was not carried out, because the mode was already the one wanted.
constexpr double shortestStart = 3.0;
constexpr double failedStart = 43.0;
constexpr double shortestStop = 3.5;

void switchDab(Context& context, bool on)
{
    Controller& controller = context.controller(90);
    const auto start = Clock::now();
    if (on)
        controller.startDab();
    else
        controller.stopDab();
    const double seconds = secondsSince(start);
    const bool failed = on && seconds >= failedStart;
    const bool already = seconds < (on ? shortestStart : shortestStop);
    if (failed)
        throw Failure(ExitCode::Nothing,
            "DAB mode is off: the receiver program did not open its socket within 40 s",
            "is it installed at /home/ondrak/qt-dab/qt-dab? (virtual instrument: bench/hardware brings one)");
    if (context.json())
        context.print({{"dab_mode", on}, {"was_already", already}, {"seconds", seconds}});
    else
        context.out() << "DAB mode " << (already ? "was already " : "is ") << (on ? "on" : "off")
                      << std::endl;
}

void sendDab(Context& context, const std::vector<std::string>& words, bool hex)
{
    std::string block;
    for (const std::string& word : words)
        block += (block.empty() || hex ? "" : " ") + word;
    if (hex)
        block = fromHexText(block);
    if (block.compare(0, 3, "dab") != 0)
        block.insert(0, "dab ");
    constexpr std::size_t blockSize = 117;
    if (block.size() > blockSize)
        throw Failure(ExitCode::Usage, "a DAB block has at most 117 bytes, \"dab\" included", "shorten it");
    const Bytes answer = context.controller().dab(block);
    if (answer.empty())
        throw Failure(
            ExitCode::Nothing, "no answer from the DAB receiver", "is DAB mode on? tessaryctl dab start");
    const std::string bytes = textOf(answer);
    if (context.json())
        context.print({{"text", bytes.substr(0, bytes.find('\0'))}, {"hex", hexText(bytes)}});
    else
        context.out() << hexDump(bytes) << std::flush;
}

void ebsStatus(Context& context)
{
    const EbsStatus status = context.controller().ebsStatus();
    if (context.json())
        return context.print({{"programs", status.programs}, {"selected", status.selected}});
    context.out() << tableOf(
        {{"programs", std::to_string(status.programs)}, {"selected", std::to_string(status.selected)}})
                  << std::flush;
}

void ebsInfo(Context& context)
{
    const EbsDecoderInfo info = context.controller().ebsDecoderInfo();
    if (context.json())
        return context.print({{"video_code", info.videoCode}, {"video", ebsVideoName(info.videoCode)},
            {"width", info.width}, {"height", info.height}, {"audio_code", info.audioCode},
            {"audio", ebsAudioName(info.audioCode)}});
    context.out() << tableOf({{"video", ebsVideoName(info.videoCode)},
        {"picture", std::to_string(info.width) + " × " + std::to_string(info.height)},
        {"audio", ebsAudioName(info.audioCode)}})
                  << std::flush;
}

/// For answers that say no more than that they came.
void acknowledge(Context& context, const std::string& text, const Json& value)
{
    if (context.json())
        context.print(value);
    else
        context.out() << text << std::endl;
}

CLI::App* addEbsWithIndex(CLI::App& app, Context& context, const char* name, const char* text,
    const char* argument, void (*run)(Context&, int))
{
    auto* sub = addSubcommand(app, context, name, text);
    auto index = std::make_shared<int>(0);
    sub->add_option(argument, *index, "0 to 255")->required()->check(between(0, 255));
    sub->callback([&context, index, run] { run(context, *index); });
    return sub;
}

void ebsPlay(Context& context, int index)
{
    context.controller().ebsPlay(index);
    acknowledge(context, "service " + std::to_string(index) + " selected", {{"selected", index}});
}

void ebsName(Context& context, int index)
{
    const std::string name = context.controller().ebsServiceName(index);
    acknowledge(context, name, {{"index", index}, {"name", name}});
}

void ebsAudio(Context& context, int level)
{
    context.controller().ebsAudioLevel(level);
    acknowledge(context, "acknowledged; the instrument leaves its sound as it is", {{"acknowledged", true}});
}

void ebsScan(Context& context)
{
    context.controller().ebsScan();
    acknowledge(context, "scanning the FPGA's stream; tessaryctl ebs status tells what it finds",
        {{"scanning", true}});
}

void ebsVersion(Context& context)
{
    const std::string line = context.controller().ebsVersion();
    acknowledge(context, line, jsonOfVersion(parseVersion(line)));
}

} // namespace

void addDab(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "dab", "DAB mode: switch it, talk to the receiver");
    sub->require_subcommand(1);
    addSubcommand(*sub, context, "start", "Hand display and sound to the DAB receiver (takes some seconds)")
        ->callback([&context] { switchDab(context, true); });
    addSubcommand(*sub, context, "stop", "Take them back")->callback([&context] {
        switchDab(context, false);
    });
    auto* send =
        addSubcommand(*sub, context, "send", "Send a block to the receiver and show its answer of 117 bytes");
    auto words = std::make_shared<std::vector<std::string>>();
    auto hex = std::make_shared<bool>(false);
    send->add_option("block", *words, "the block; \"dab\" is put before it when it is missing")->required();
    send->add_flag("--hex", *hex, "the block is bytes in hexadecimal");
    send->callback([&context, words, hex] { sendDab(context, *words, *hex); });
}

void addEbs(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "ebs", "EBS frames");
    sub->require_subcommand(1);
    addSubcommand(*sub, context, "scan", "Scan the FPGA's stream")->callback([&context] {
        ebsScan(context);
    });
    addSubcommand(*sub, context, "status", "Programs found, and the one selected")->callback([&context] {
        ebsStatus(context);
    });
    addSubcommand(*sub, context, "info", "What the decoder decodes")->callback([&context] {
        ebsInfo(context);
    });
    addSubcommand(*sub, context, "version", "The version line")->callback([&context] {
        ebsVersion(context);
    });
    addEbsWithIndex(*sub, context, "play", "Play a service by its index, counted from 1", "index", ebsPlay);
    addEbsWithIndex(*sub, context, "name", "The instrument's name for an index", "index", ebsName);
    addEbsWithIndex(*sub, context, "audio", "Send an audio level", "level", ebsAudio);
}

} // namespace tessary::ctl
