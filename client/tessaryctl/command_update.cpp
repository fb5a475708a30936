// Sends a software package to the instrument.
#include "client/lineerror.h"
#include "client/softwareupdate.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/progress.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/waiting.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>

namespace tessary::ctl {

using namespace client;

namespace {

struct UpdateOptions
{
    std::string file;
    std::size_t bytesPerSecond = SoftwareUpdate::Settings{}.bytesPerSecond;
    double installSeconds = 180;
    bool force = false;
};

Bytes readPackage(const UpdateOptions& options)
{
    std::ifstream file(options.file, std::ios::binary);
    if (!file)
        throw Failure(ExitCode::LocalFile, "cannot read " + options.file + ": " + std::strerror(errno),
            "check the path");
    Bytes bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad() || bytes.empty())
        throw Failure(ExitCode::LocalFile, options.file + (bytes.empty() ? " is empty" : " can not be read"),
            "name a Debian package");
    static constexpr std::string_view archiveMark = "!<arch>\ndebian-binary";
    const bool isPackage = bytes.size() > archiveMark.size()
        && std::equal(archiveMark.begin(), archiveMark.end(), bytes.begin());
    if (!isPackage && !options.force)
        throw Failure(ExitCode::LocalFile, options.file + " is no Debian package",
            "name a .deb file; --force sends it all the same");
    if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        throw Failure(ExitCode::LocalFile, options.file + " is larger than the instrument can take (2 GiB)",
            "send a smaller package");
    return bytes;
}

ExitCode codeOf(SoftwareUpdate::Result result)
{
    using Result = SoftwareUpdate::Result;
    switch (result) {
    case Result::NotStarted:
        return ExitCode::UpdateNotStarted;
    case Result::Refused:
        return ExitCode::UpdateRefused;
    case Result::BytesLost:
        return ExitCode::UpdateBytesLost;
    case Result::Restarted:
        return ExitCode::UpdateRestarted;
    case Result::Unconfirmed:
    case Result::Stopped:
    case Result::Installed:
        break;
    }
    return ExitCode::UpdateUnconfirmed;
}

[[noreturn]] void fail(SoftwareUpdate::Result result, const SoftwareUpdate::Settings& settings)
{
    const auto [cause, remedy] = SoftwareUpdate::explain(result, settings);
    const bool slow = result == SoftwareUpdate::Result::Unconfirmed;
    throw Failure(codeOf(result), cause, remedy + (slow ? ": --install-timeout" : ""));
}

/// Waits until the daemon has given up on the rest of a package and answers again; false when Ctrl-C came
/// once more, or it does not answer.
bool listensAgain(Controller& controller, InterruptGuard& guard)
{
    constexpr int attempts = 3; // a question that comes too soon counts as a part of the package
    for (int i = 0; i < attempts; ++i) {
        guard.clear();
        guard.sleepUntil(
            std::chrono::steady_clock::now() + SoftwareUpdate::daemonPatience + Milliseconds(2000));
        if (guard.interrupted())
            return false;
        try {
            controller.settle();
            return true;
        } catch (const LineError& error) {
            if (error.kind() != LineError::Kind::TimedOut)
                throw;
        }
    }
    return false;
}

/// After Ctrl-C in the middle: the instrument is as before, listening and with its networking on.
[[noreturn]] void bringBack(Context& context, InterruptGuard& guard, const std::string& sent)
{
    const std::string cause = "the update was ended after " + sent + "; nothing was installed";
    const std::string switchOn = "nmcli networking on";
    Controller& controller = context.controller(3);
    if (!listensAgain(controller, guard))
        throw Failure(ExitCode::Interrupted,
            cause
                + "; the instrument was not waited for: it gives the update up by itself, its networking off",
            "switch it on: tessaryctl command '" + switchOn + "'");
    if (context.controller(60).runCommandShown(switchOn).status != 0)
        throw Failure(ExitCode::Interrupted, cause + "; the instrument's networking is off",
            "switch the instrument off and on");
    throw Failure(ExitCode::Interrupted,
        cause + "; the instrument takes commands again, and its networking is on",
        "send it again at any time");
}

void update(Context& context, const UpdateOptions& options)
{
    const Bytes package = readPackage(options);
    SoftwareUpdate::Settings settings;
    settings.bytesPerSecond = options.bytesPerSecond;
    settings.answer = context.timeout(10);
    settings.installation = Milliseconds(std::lround(options.installSeconds * 1000));
    InterruptGuard guard(0,
        "\na package that is wholly sent is installed; otherwise the instrument gives it up, which takes "
        "some "
        "12 s; Ctrl-C again leaves it alone with that\n");
    settings.stop = [&guard] { return guard.interrupted(); };
    SoftwareUpdate transfer(context.line(), settings);
    const auto start = std::chrono::steady_clock::now();
    SoftwareUpdate::Result result{};
    std::size_t sent = 0;
    {
        ProgressBar progress("sending", package.size());
        result = transfer.run(package, [&](std::size_t bytes) { progress.update(sent = bytes); });
    }
    const double seconds = secondsSince(start);
    if (result == SoftwareUpdate::Result::Stopped)
        bringBack(context, guard,
            byteCount(static_cast<double>(sent)) + " of " + byteCount(static_cast<double>(package.size())));
    if (result != SoftwareUpdate::Result::Installed)
        fail(result, settings);
    if (context.json())
        context.print({{"installed", true}, {"bytes", package.size()}, {"seconds", seconds}});
    else
        context.out() << "update ok: " << byteCount(static_cast<double>(package.size()))
                      << " sent and installed in " << durationText(seconds) << std::endl;
    context.note(SoftwareUpdate::offlineRemark);
}

} // namespace

void addUpdate(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "update", "Send a software package and have it installed");
    auto options = std::make_shared<UpdateOptions>();
    sub->add_option("file", options->file, "Debian package")->required()->type_name("FILE.deb");
    sub->add_option("--rate", options->bytesPerSecond,
           "send at most so many bytes a second; a line of 115200 baud carries 11520")
        ->check(between(100, 100000000))
        ->capture_default_str();
    sub->add_option("--install-timeout", options->installSeconds, "seconds to wait for the installation")
        ->check(between(1.0, 86400.0))
        ->capture_default_str();
    sub->add_flag("--force", options->force, "send a file that is no Debian package, too");
    sub->callback([&context, options] { update(context, *options); });
}

} // namespace tessary::ctl
