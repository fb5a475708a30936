#pragma once

#include <string>

/// What stands in for the controller's end of the serial line: everything that the instrument ever says is
/// laid on it beforehand. Where that ends, the line hangs up.
namespace scriptedline {

/// `answers`: a byte 0xFF stands for a silence.
void load(std::string answers);

} // namespace scriptedline
