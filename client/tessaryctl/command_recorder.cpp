// The recording on the memory card: record, export.
#include "client/tessaryctl/card.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/progress.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/waiting.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <ostream>

namespace tessary::ctl {

using namespace client;

namespace {

using Clock = std::chrono::steady_clock;

std::string sizeText(std::uint64_t bytes)
{
    return byteCount(static_cast<double>(bytes));
}

void showSize(Context& context, std::uint64_t bytes, bool recording)
{
    if (context.json())
        context.print({{"recording_bytes", bytes}, {"recording", recording}});
    else
        context.out() << (bytes == 0 ? std::string("no recording") : sizeText(bytes) + " recorded")
                      << (recording ? ", goes on" : "") << std::endl;
}

[[noreturn]] void throwCardFull(std::uint64_t bytes)
{
    throw Failure(ExitCode::CardFull,
        "the memory card is full: the recording ends at " + sizeText(bytes) + ", not when it was to end",
        "make room on the card, or record for a shorter time", {{"recording_bytes", bytes}});
}

/// Why recording now would, or might, destroy the recording; empty when it would not.
///
/// A recording replaces the file that it is made into, and a source that reads this file reads nothing but
/// what has just been written. The instrument does not tell its source. What is known: whether the file is
/// being read, and what this tool did last. A file source that has come to its end, or was stopped, does not
/// read: if another controller made it after this tool chose a stream, nobody can tell.
std::string dangerToTheRecording(Context& context)
{
    using Source = InstrumentMemory::Source;
    Controller& controller = context.controller();
    if (controller.recordingSize() == 0)
        return {};
    if (recordingIsRead(controller))
        return "the recording itself is the source (the instrument is reading it): recording would destroy "
               "it";
    const Source source = context.memory().source();
    if (source == Source::Recording)
        return "the recording itself is the source (it was scanned last): recording would destroy it";
    const bool chosenHere = source == Source::Ip || source == Source::Fpga;
    if (!chosenHere && controller.playerStatus() == "stopped")
        return "the instrument has a source that tessaryctl did not choose and that has stopped: it may be "
               "the "
               "recording itself, which recording would destroy";
    return {};
}

void refuseToDestroy(Context& context)
{
    const std::string danger = dangerToTheRecording(context);
    if (!danger.empty())
        throw Failure(ExitCode::WouldDestroy, danger,
            "choose a source first: tessaryctl scan, or tessaryctl record stop for the FPGA's stream");
}

enum class End { InTime, Interrupted, CardFull };

/// Watches the recording grow until the time is over, the card full, or Ctrl-C.
End awaitEnd(Controller& controller, double seconds, const InterruptGuard& guard)
{
    const auto start = Clock::now();
    const auto end = start + Milliseconds(std::lround(seconds * 1000));
    std::uint64_t before = 0;
    StatusLine status;
    for (auto next = start; next < end;) {
        next = std::min<Clock::time_point>(next + Milliseconds(1000), end);
        guard.sleepUntil(next);
        if (guard.interrupted())
            return End::Interrupted;
        const std::uint64_t bytes = controller.recordingSize();
        const double passed = secondsSince(start);
        status.show("recording " + durationText(passed) + ", " + sizeText(bytes), passed / seconds);
        if (bytes == before && bytes > 0 && cardIsFull(controller))
            return End::CardFull;
        before = bytes;
    }
    return End::InTime;
}

/// Records for a time; how long it went on, and why it ended.
void recordFor(Context& context, double seconds)
{
    Controller& controller = context.controller();
    const auto start = Clock::now();
    End end = End::InTime;
    {
        const InterruptGuard guard(2, "\nending the recording; Ctrl-C again leaves it going on\n");
        beginRecording(controller, context.memory().source());
        end = awaitEnd(controller, seconds, guard);
        controller.stopRecording();
    }
    const double passed = secondsSince(start);
    const std::uint64_t bytes = controller.recordingSize();
    if (end == End::Interrupted)
        throw Failure(ExitCode::Interrupted,
            "the recording was ended after " + fixed(passed, 1) + " s of " + fixed(seconds, 1) + " s; it has "
                + sizeText(bytes),
            "tessaryctl record start makes another", {{"recording_bytes", bytes}});
    if (end == End::CardFull || (bytes > 0 && cardIsFull(controller)))
        throwCardFull(bytes);
    if (bytes > 0)
        showSize(context, bytes, false);
}

/// Begins to record; returns when the first bytes should be in the file.
void recordOn(Context& context)
{
    constexpr Milliseconds firstBytes{1500};
    Controller& controller = context.controller();
    const InterruptGuard guard(2, "\n");
    beginRecording(controller, context.memory().source());
    guard.sleepUntil(Clock::now() + firstBytes);
    const std::uint64_t bytes = controller.recordingSize();
    if (guard.interrupted())
        throw Failure(ExitCode::Interrupted, "the recording has begun and goes on; it has " + sizeText(bytes),
            "end it: tessaryctl record stop", {{"recording_bytes", bytes}});
    if (bytes > 0)
        showSize(context, bytes, true);
}

void startRecording(Context& context, double seconds)
{
    refuseToDestroy(context);
    if (seconds > 0)
        recordFor(context, seconds);
    else
        recordOn(context);
    if (context.controller().recordingSize() == 0)
        throw Failure(ExitCode::Nothing, "nothing has been recorded",
            "is the memory card in, and does the stream come in (tessaryctl scan, tessaryctl measure)?");
}

void stopRecording(Context& context)
{
    Controller& controller = context.controller();
    controller.stopRecording();
    const std::uint64_t bytes = controller.recordingSize();
    if (bytes > 0 && cardIsFull(controller))
        throwCardFull(bytes);
    showSize(context, bytes, false);
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
    {
        StatusLine status;
        status.show("exporting " + sizeText(bytes) + " ...");
        context.controller(wait).settle(); // it answers again when the export has ended
    }
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
        ->callback([&context] { stopRecording(context); });
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
