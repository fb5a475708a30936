#pragma once

#include "client/controller.h"

#include <cstdint>
#include <optional>

namespace tessary::ctl {

// The memory card and the recording on it, asked of the instrument's own tools by shell commands.

/// True while a program on the instrument, such as the daemon for its source, reads the recording.
bool recordingIsRead(client::Controller& controller);

/// Bytes that the card has room for; nothing when the instrument can not tell.
std::optional<std::uint64_t> cardRoom(client::Controller& controller);

/// Less room than the recorder's next block needs.
bool cardIsFull(client::Controller& controller);

} // namespace tessary::ctl
