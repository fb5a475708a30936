#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>
#include <vector>

namespace tessary::ctl {

/// Names of the sub-commands directly below `app`.
std::vector<std::string> subcommandNames(const CLI::App& app);
/// "--name" of each of its own options.
std::vector<std::string> optionNames(const CLI::App& app);
/// The sub-command of this name; null without one.
const CLI::App* subcommandOf(const CLI::App& app, const std::string& name);

} // namespace tessary::ctl
