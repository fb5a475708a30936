#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What stands in for the controller's serial line: the bytes of an input on one side, what the daemon writes
/// on the other. The line's pauses come from the input, too: behind each line feed, or none at all.
namespace fakeline {

enum class Pauses { None, BehindLines };

/// Puts the bytes on the line and forgets what was written before.
void load(std::vector<std::uint8_t> received, Pauses pauses);

/// Bytes that the daemon has not taken.
std::size_t left();

/// What the daemon has written since load().
const std::string& written();

} // namespace fakeline
