#pragma once

#include "client/tessaryctl/memory.h"

#include <cstdint>
#include <optional>

namespace tessary::ctl {

// The memory card and the recording on it. What the daemon does not tell is asked of the instrument's own tools
// by shell commands.

/// Begins to record the source, which memory knows. One that plays no program, as after a scan, passes nothing
/// on to the recorder: it is scanned anew before.
void beginRecording(client::Controller& controller, InstrumentMemory::Source source);

/// True while a program on the instrument, such as the daemon for its source, reads the recording.
bool recordingIsRead(client::Controller& controller);

/// Bytes that the card has room for; nothing when the instrument can not tell.
std::optional<std::uint64_t> cardRoom(client::Controller& controller);

/// Less room than the recorder's next block needs.
bool cardIsFull(client::Controller& controller);

} // namespace tessary::ctl
