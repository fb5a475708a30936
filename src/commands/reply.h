#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The way of every reply to the controller, without terminator. The UART's buffer loses what it has no room
// for: a reply that would not fit behind what was written since the line was last empty waits until it is
// empty again. Main thread only.

/// Writes a reply one byte per write, in order.
void replyByteByByte(const std::string& text);
void replyByteByByte(const std::vector<std::uint8_t>& bytes);

/// Writes a reply in one call, one longer than the UART's buffer in as few as it takes. Returns the result of
/// the last write.
int reply(const std::string& text);

/// Writes a part of a reply in one call, whatever its size; what the UART has not taken of it follows once the line
/// is empty. Returns the bytes written, or the result of a write that failed.
int replyPart(const char* bytes, std::size_t size);
