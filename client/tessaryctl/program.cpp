#include "client/tessaryctl/program.h"

#include "client/answererror.h"
#include "client/lineerror.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/guess.h"
#include "client/usageerror.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

namespace tessary::ctl {

namespace {

constexpr const char* description =
    "The controller's side of the instrument: scan, play and measure over the serial line.";

constexpr const char* footer = R"(A first session:
  tessaryctl scan udp://239.0.0.1:1234    what is on the air
  tessaryctl play 2                       show program 2
  tessaryctl measure                      how the stream arrives
  tessaryctl iat --plot --png iat.png     its inter-arrival times

The port is --port, else the environment's TESSARY_PORT, else the virtual
instrument's /run/tessary-instrument/controller.

Exit status: 0 success, 1 internal error, 2 wrong arguments, 3 no instrument at
the port, 4 no answer in time, 5 the port hung up, 6 nothing of what was asked
for, 7 no Ethernet link, 8 damaged answer, 9 file on this machine, 10 memory card
full, 11 refused for the recording's sake, 12 command failed on the instrument;
update: 20 not started, 21 refused, 22 bytes lost, 23 restarted, 24 unconfirmed;
log: 30 a limit was crossed; 130 ended by Ctrl-C.)";

void addSharedOptions(CLI::App& app, Context& context)
{
    if (!context.hosted())
        app.add_option("-p,--port", context.options.port, "serial port or pseudo terminal")
            ->type_name("PORT")
            ->group("Shared options");
    app.add_option("-t,--timeout", context.options.timeoutSeconds, "wait so long for an answer")
        ->type_name("SECONDS")
        ->check(between(0.1, 86400.0))
        ->group("Shared options");
    app.add_flag("-j,--json", context.options.json, "answer in JSON")->group("Shared options");
    app.set_help_flag("-h,--help", "print this help and exit")->group("Shared options");
}

/// A remedy is laid out for the terminal.
std::string inOneLine(std::string text)
{
    for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n'))
        text.replace(at, text.find_first_not_of("\n ", at) - at, " ");
    return text;
}

/// On standard error for the person, with --json also on standard output for the program.
int say(Context& context, const Failure& failure)
{
    if (!context.hosted()) {
        std::cout.flush();
        std::cerr << "tessaryctl: " << failure.what() << '\n';
        if (!failure.remedy().empty())
            std::cerr << "    " << failure.remedy() << '\n';
        std::cerr.flush();
    }
    if (context.json()) {
        const Json error{{"kind", wordOf(failure.code())}, {"cause", failure.what()},
            {"remedy", inOneLine(failure.remedy())}};
        Json document{{"error", error}};
        if (failure.details().is_object())
            document.update(failure.details());
        context.print(document);
    }
    return static_cast<int>(failure.code());
}

Failure failureOf(const client::LineError& error, const std::string& port)
{
    using Kind = client::LineError::Kind;
    const std::string cause = error.cause();
    const std::string remedy = error.remedy();
    switch (error.kind()) {
    case Kind::CannotOpen:
        return {ExitCode::NoInstrument, cause,
            cause.find("No such") != std::string::npos ? howToStart(port) : remedy};
    case Kind::NotATerminal:
        return {ExitCode::NoInstrument, cause, remedy};
    case Kind::HungUp:
        return {ExitCode::HungUp, cause, remedy};
    case Kind::TimedOut:
        return {ExitCode::TimedOut, cause, remedy};
    case Kind::Stopped:
        return {ExitCode::Interrupted, cause, "it takes the next command when it has ended this one"};
    case Kind::Failed:
        break;
    }
    return {ExitCode::Internal, cause, remedy};
}

/// True when --json is among the words, whether the rest can be understood or not.
bool asksForJson(const std::vector<std::string>& words)
{
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::any_of(
        words.begin(), end, [](const std::string& word) { return word == "--json" || word == "-j"; });
}

/// No sub-command: what there is, and whether there is an instrument.
void overview(CLI::App& app, Context& context)
{
    if (!context.json())
        context.out() << app.help() << '\n';
    context.controller();
    const std::string port = context.options.port.empty() ? defaultPort() : context.options.port;
    if (context.json())
        return context.print({{"port", port}});
    context.out() << "Instrument: port " << port << " is there.\n";
}

Failure failureOf(const CLI::App& app, const CLI::ParseError& error)
{
    const CLI::App* deepest = &app;
    std::string words = "tessaryctl";
    while (!deepest->get_subcommands().empty()) {
        deepest = deepest->get_subcommands().front();
        words += " " + deepest->get_name();
    }
    const std::string meant = guessOf(*deepest, app.remaining(true));
    return {ExitCode::Usage, error.what(),
        (meant.empty() ? "" : "did you mean " + meant + "? ") + "see: " + words + " --help"};
}

} // namespace

CLI::App* addSubcommand(
    CLI::App& app, Context& context, const std::string& name, const std::string& subDescription)
{
    CLI::App* sub = app.add_subcommand(name, subDescription);
    addSharedOptions(*sub, context);
    sub->require_subcommand(0, 1);
    sub->footer(""); // not that of the whole program
    return sub;
}

std::string howToStart(const std::string& port)
{
    std::string text =
        "plug in the serial adapter and name it with --port or TESSARY_PORT (such as /dev/ttyUSB0),\n"
        "    or start the virtual instrument in the source tree:  sudo bench/instrument run\n"
        "    (script/demo --stay --no-panel starts it together with a stream)";
    if (port != "/run/tessary-instrument/controller")
        text += "\n    and use its port, /run/tessary-instrument/controller";
    return text;
}

std::unique_ptr<CLI::App> makeParser(Context& context)
{
    auto app = std::make_unique<CLI::App>(description, "tessaryctl");
    app->require_subcommand(0, 1);
    app->footer(footer);
    app->set_version_flag("--version", "tessaryctl " TESSARY_VERSION, "print the program's version and exit");
    app->get_formatter()->column_width(28);
    addSharedOptions(*app, context);
    const bool here = !context.hosted(); // where this machine's files and terminal may be reached
    for (const auto add : {addScan, addPlay, addInfo, addStatus, addMeasure, addIat, here ? addLog : nullptr,
             here ? addReport : nullptr, here ? addView : nullptr, addServer, addInterface, addPing,
             addRecord, addExport, addT2miFrame, addSendTs, addEbs, addDab, addUpdate, addVersion, addCommand,
             addRaw, addSchema})
        if (add != nullptr)
            add(*app, context);
    if (!here)
        return app;
    addSubcommand(*app, context, "shell", "Type sub-commands one after another, with history and completion")
        ->callback([&context] {
            const int status = runShell(context);
            if (status != 0)
                throw CLI::RuntimeError(status);
        });
    return app;
}

namespace {

void addValues(const CLI::App& app, std::map<std::string, std::vector<std::string>>& values)
{
    for (const CLI::Option* option : app.get_options()) {
        if (option->count() > 0)
            values[option->get_single_name()] = option->results();
    }
}

/// Ends the parsing when all has been checked and before a sub-command runs.
struct Understood
{
};

} // namespace

Failure failureInFlight(const std::string& port)
{
    try {
        throw;
    } catch (const Failure& failure) {
        return failure;
    } catch (const client::LineError& error) {
        return failureOf(error, port);
    } catch (const client::AnswerError& error) {
        return {ExitCode::BadAnswer, error.what(), client::AnswerError::remedy};
    } catch (const client::UsageError& error) {
        return {ExitCode::Usage, error.what(), error.remedy()};
    } catch (const std::exception& error) {
        return {ExitCode::Internal, error.what()};
    }
}

AskedFor understand(Context& context, const std::vector<std::string>& words)
{
    const auto parser = makeParser(context);
    parser->parse_complete_callback([] { throw Understood(); });
    try {
        parser->parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const Understood&) { // NOLINT(bugprone-empty-catch): what was asked for is read below
    } catch (const CLI::Success&) { // --help, --version
        return {};
    } catch (const CLI::ParseError& error) {
        throw failureOf(*parser, error);
    }
    AskedFor asked;
    const CLI::App* app = parser.get();
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
        asked.command += (asked.command.empty() ? "" : " ") + app->get_name();
        addValues(*app, asked.values);
    }
    return asked;
}

int runCommandLine(Context& context, const std::vector<std::string>& words)
{
    const auto parser = makeParser(context);
    const auto port = [&context] {
        return context.options.port.empty() ? defaultPort() : context.options.port;
    };
    try {
        std::vector<std::string> reversed(
            words.rbegin(), words.rend()); // the parser takes them from the back
        parser->parse(std::move(reversed));
        if (parser->get_subcommands().empty())
            overview(*parser, context);
        return static_cast<int>(ExitCode::Success);
    } catch (const CLI::RuntimeError& error) {
        return error.get_exit_code();
    } catch (const CLI::Success& success) { // --help, --version
        return parser->exit(success, context.out(), context.out());
    } catch (const CLI::ParseError& error) {
        context.options.json = context.options.json || asksForJson(words);
        return say(context, failureOf(*parser, error));
    } catch (const std::exception&) {
        return say(context, failureInFlight(port()));
    }
}

} // namespace tessary::ctl
