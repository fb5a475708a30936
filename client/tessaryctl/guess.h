#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>
#include <vector>

namespace tessary::ctl {

/// The sub-command or option of `app` that one of the words that it does not know may be meant for; empty
/// when none is near.
std::string guessOf(const CLI::App& app, const std::vector<std::string>& unknown);

} // namespace tessary::ctl
