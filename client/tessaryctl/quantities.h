#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace tessary::ctl {

// Transformations of an option's text into the number that the option takes; refuse anything else.

/// "90", "90s", "30m", "8h", "1.5d" into seconds.
CLI::Validator durationWithUnit();
/// "9500000", "9500k", "9.5M", "1G" into bits per second.
CLI::Validator rateWithUnit();

} // namespace tessary::ctl
