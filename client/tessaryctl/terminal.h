#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tessary::ctl {

/// Sets the character type of the locale to UTF-8, which is what everything here writes.
void useUtf8();

bool outputIsTerminal();
bool errorIsTerminal();
/// Columns of the terminal on standard output; 80 when it is none.
std::size_t terminalWidth();
/// Its lines; 24 when it is none.
std::size_t terminalHeight();

/// Columns that UTF-8 text takes up on a terminal: 2 for each wide (Chinese) character, 0 for combining ones.
std::size_t displayWidth(const std::string& text);
/// Filled up with blanks to `width` columns; longer text stays as it is.
std::string padded(const std::string& text, std::size_t width);
/// Lines of text, each cut where it would be wider than `width` columns; without a line feed at the end.
std::string cutToWidth(const std::string& text, std::size_t width);
/// Control characters and invalid bytes replaced, so that a name out of a stream can not steer the terminal.
std::string printable(const std::string& text);

/// Rows of text as columns, each as wide as its widest cell; the first row is the heading.
std::string tableOf(const std::vector<std::vector<std::string>>& rows, const std::string& indent = "");

/// A bar of eighth blocks, `share` (0 to 1) of `width` columns.
std::string bar(double share, std::size_t width);

/// "257 (0x101)".
std::string pidText(std::uint16_t pid);
/// "12.3 kB", "1.50 MB": decimal units.
std::string byteCount(double bytes);
/// "10.32 Mbit/s".
std::string bitRateText(double bitsPerSecond);
/// "0:07", "14:28", "1:02:03".
std::string durationText(double seconds);
/// "998 µs", "12.50 ms", "1.20 s".
std::string microsecondsText(double microseconds);
std::string fixed(double value, int decimals);

/// Lines of 16 bytes: offset, hexadecimal, text.
std::string hexDump(const std::string& bytes);
std::string hexText(const std::string& bytes);
/// "48 65 6c" or "48656c" to bytes; throws Failure Usage for anything else.
std::string fromHexText(const std::string& text);

} // namespace tessary::ctl
