#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Writes a reply to the controller one byte per write, in order, without terminator.
void replyByteByByte(const std::string& text);
void replyByteByByte(const std::vector<std::uint8_t>& bytes);

/// Writes a reply to the controller in one call, without terminator. Returns the result of the write.
int reply(const std::string& text);
