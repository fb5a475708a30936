#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tessary::ctl {

class Context;
class Failure;

/// The parser with all sub-commands. `context` must outlive it.
std::unique_ptr<CLI::App> makeParser(Context& context);

/// What a command line asks for.
struct AskedFor
{
    std::string command; ///< names of the sub-commands, such as "record start"; empty for help
    std::map<std::string, std::vector<std::string>> values; ///< of the options and arguments that are given
};

/// What the exception that is being handled means to the person at `port`.
Failure failureInFlight(const std::string& port);

/// Parses a command line without carrying anything out. Throws Failure Usage for what is none.
AskedFor understand(Context& context, const std::vector<std::string>& words);

/// Parses and carries out one command line, `tessaryctl` itself left out; says on standard error what went
/// wrong. Returns the exit status.
int runCommandLine(Context& context, const std::vector<std::string>& words);

/// What can stand next after `words`, of which the last one is unfinished (perhaps empty): sub-commands,
/// options, fixed choices; and from earlier runs on the same port the stream server and the services.
std::vector<std::string> completionsOf(const std::vector<std::string>& words);

/// How to get an instrument when there is none at `port`.
std::string howToStart(const std::string& port);

/// The interactive shell; returns the exit status.
int runShell(Context& context);

} // namespace tessary::ctl
