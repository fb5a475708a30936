#include "client/panel/options.h"

#include "client/tessaryctl/failure.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <filesystem>
#include <iostream>

namespace tessary::panel {

using ctl::ExitCode;
using ctl::Failure;

namespace {

constexpr const char* description = "The instrument as a page in a browser, and in a monitoring system.";

constexpr const char* footer =
    R"(The page is at http://127.0.0.1:8080, the metrics for Prometheus at /metrics.

Exit status: 0 success, 1 internal error, 2 wrong arguments, 9 a file, a folder or
the address to listen on can not be used.)";

/// In the source tree the page lies beside the build, elsewhere beside the program.
std::string firstThere(const std::vector<std::string>& candidates)
{
    for (const std::string& path : candidates) {
        if (std::filesystem::exists(path))
            return path;
    }
    return candidates.front();
}

std::string programFolder()
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("-p,--port", options.port, "serial port or pseudo terminal of the instrument")
        ->type_name("PORT");
    app.add_option("-l,--listen", options.listen, "address and port to listen on")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    app.add_option("--token-file", options.tokenFile,
           "file whose first line is the token that browsers need; another address than this machine's needs "
           "one")
        ->type_name("FILE");
    app.add_option(
           "--history", options.history, "file that keeps the measurement's last 24 hours; default: memory")
        ->type_name("FILE");
    app.add_flag("--allow-command", options.allowed.command,
        "let browsers run shell commands on the instrument, as root");
    app.add_flag("--allow-update", options.allowed.update, "let browsers update the instrument's software");
    app.add_option("--upload-limit", options.uploadLimit, "MiB that a package may have")
        ->check(CLI::Range(1, 2047).description(""))
        ->capture_default_str();
    app.add_option("--page", options.page, "folder of the page's files")->type_name("FOLDER");
    app.add_option("--dygraphs", options.dygraphs, "folder of dygraph.min.js and dygraph.min.css")
        ->type_name("FOLDER");
    app.add_option("--instrument", options.instrument, "program that steers the virtual instrument")
        ->type_name("PROGRAM");
    app.add_option("--sender", options.sender, "program that sends streams to it")->type_name("PROGRAM");
    app.add_option("--streams", options.streams, "folder of streams that the desk can send")
        ->type_name("FOLDER");
}

void complete(Options& options)
{
    const std::string here = programFolder();
    const std::string tree = here + "/../../.."; // build/PRESET/bin
    if (options.port.empty())
        options.port = ctl::defaultPort();
    if (options.page.empty())
        options.page = firstThere({here + "/../share/tessary-panel/www", tree + "/client/panel/www"});
    options.description =
        firstThere({here + "/../share/tessary-panel/openapi.json", tree + "/client/panel/openapi.json"});
    if (options.dygraphs.empty())
        options.dygraphs = "/usr/share/javascript/dygraphs";
    if (options.instrument.empty())
        options.instrument = firstThere({"/usr/bin/tessary-instrument", tree + "/bench/instrument"});
    if (options.sender.empty())
        options.sender = firstThere({here + "/../bench/sender/tessary-send", "/usr/bin/tessary-send"});
    if (options.streams.empty())
        options.streams = firstThere({tree + "/build/streams", "/var/lib/tessary-bench/streams"});
}

void check(const Options& options)
{
    const std::size_t colon = options.listen.rfind(':');
    const std::string port = colon == std::string::npos ? "" : options.listen.substr(colon + 1);
    const bool number =
        !port.empty() && port.size() < 6 && port.find_first_not_of("0123456789") == std::string::npos;
    if (!number || std::stoi(port) > 65535 || colon == 0)
        throw Failure(
            ExitCode::Usage, "\"" + options.listen + "\" is no address and port", "such as 127.0.0.1:8080");
    if (!options.isLocal() && options.tokenFile.empty())
        throw Failure(ExitCode::Usage,
            "on " + options.address() + " others can reach the panel, and it has no token",
            "make one (head -c 18 /dev/urandom | base64 > FILE), and name it with --token-file FILE");
}

} // namespace

std::string Options::address() const
{
    return listen.substr(0, listen.rfind(':'));
}

int Options::httpPort() const
{
    return std::stoi(listen.substr(listen.rfind(':') + 1));
}

bool Options::isLocal() const
{
    return address() == "127.0.0.1" || address() == "localhost";
}

std::optional<int> parseOptions(int argc, char** argv, Options& options)
{
    CLI::App app(description, "tessary-panel");
    app.footer(footer);
    app.set_version_flag(
        "--version", "tessary-panel " TESSARY_VERSION, "print the program's version and exit");
    app.get_formatter()->column_width(28);
    addOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitCode::Usage, error.what(), "see: tessary-panel --help");
    }
    complete(options);
    check(options);
    return std::nullopt;
}

} // namespace tessary::panel
