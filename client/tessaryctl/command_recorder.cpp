// The recording on the memory card: record, export.
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/terminal.h"

#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>

namespace tessary::ctl {

using namespace client;

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void showSize(Context& context, std::uint64_t bytes, bool recording)
{
    if (context.json()) {
        context.print({{"recording_bytes", bytes}, {"recording", recording}});
    } else {
        context.out() << (bytes == 0 ? std::string("no recording")
                                     : byteCount(static_cast<double>(bytes)) + " recorded")
                      << (recording ? ", goes on" : "") << std::endl;
    }
}

/// Watches the recording grow, so that a card that takes nothing is noticed at once.
void awaitEnd(Controller& controller, double seconds)
{
    const auto start = Clock::now();
    while (secondsSince(start) < seconds) {
        std::this_thread::sleep_for(
            Milliseconds(std::lround(std::min(1.0, seconds - secondsSince(start)) * 1000) + 1));
        if (errorIsTerminal())
            std::cerr << "\rrecording " << durationText(secondsSince(start)) << ", "
                      << byteCount(static_cast<double>(controller.recordingSize())) << "\033[K" << std::flush;
    }
    if (errorIsTerminal())
        std::cerr << "\r\033[K" << std::flush;
}

void startRecording(Context& context, double seconds)
{
    Controller& controller = context.controller();
    controller.record();
    if (seconds > 0) {
        awaitEnd(controller, seconds);
        controller.stopRecording();
    } else {
        std::this_thread::sleep_for(Milliseconds(1500)); // until the first bytes are in the file
    }
    const std::uint64_t bytes = controller.recordingSize();
    if (bytes == 0)
        throw Failure(ExitCode::Nothing, "nothing has been recorded",
            "is the memory card in, and does the stream come in (tessaryctl scan, tessaryctl measure)?");
    showSize(context, bytes, seconds <= 0);
}

void exportRecording(Context& context, double wait)
{
    Controller& controller = context.controller();
    const std::uint64_t bytes = controller.recordingSize();
    if (bytes == 0)
        throw Failure(
            ExitCode::Nothing, "there is no recording", "make one: tessaryctl record start --seconds 10");
    const auto start = Clock::now();
    controller.exportRecording();
    if (errorIsTerminal())
        std::cerr << "exporting " << byteCount(static_cast<double>(bytes)) << " ..." << std::flush;
    context.controller(wait).settle(); // it answers again when the export has ended
    if (errorIsTerminal())
        std::cerr << "\r\033[K" << std::flush;
    const double seconds = secondsSince(start);
    if (context.json())
        return context.print({{"bytes", bytes}, {"seconds", seconds}});
    context.out() << "export of " << byteCount(static_cast<double>(bytes)) << " ended after "
                  << fixed(seconds, 1) << " s; the instrument does not tell whether the FPGA took everything"
                  << std::endl;
}

} // namespace

void addRecord(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "record", "Record the current stream to the memory card");
    sub->require_subcommand(1);
    auto* start =
        addSubcommand(*sub, context, "start", "Begin to record; without a source, the FPGA's stream");
    auto seconds = std::make_shared<double>(0);
    start->add_option("-s,--seconds", *seconds, "stop after so many seconds; otherwise with record stop")
        ->check(between(0.1, 1000000.0));
    start->callback([&context, seconds] { startRecording(context, *seconds); });
    addSubcommand(*sub, context, "stop", "End the recording, and with it the current source")
        ->callback([&context] {
            Controller& controller = context.controller();
            controller.stopRecording();
            showSize(context, controller.recordingSize(), false);
        });
    addSubcommand(*sub, context, "status", "Tell the recording's size")->callback([&context] {
        showSize(context, context.controller().recordingSize(), false);
    });
}

void addExport(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "export", "Send the recording to the FPGA");
    auto wait = std::make_shared<double>(600);
    sub->add_option("--wait", *wait, "seconds to wait for its end")
        ->check(between(1.0, 86400.0))
        ->capture_default_str();
    sub->callback([&context, wait] { exportRecording(context, *wait); });
}

} // namespace tessary::ctl
