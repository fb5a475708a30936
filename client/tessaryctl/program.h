#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <memory>
#include <string>
#include <vector>

namespace tessary::ctl {

class Context;

/// The parser with all sub-commands. `context` must outlive it.
std::unique_ptr<CLI::App> makeParser(Context& context);

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
