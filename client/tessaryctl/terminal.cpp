#include "client/tessaryctl/terminal.h"

#include "client/tessaryctl/failure.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <langinfo.h>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tessary::ctl {

namespace {

/// Takes the character at `at` apart: its bytes and value; a size of 0 for an invalid byte.
std::size_t decode(const std::string& text, std::size_t at, wchar_t& character)
{
    std::mbstate_t state{};
    const std::size_t size = std::mbrtowc(&character, text.data() + at, text.size() - at, &state);
    return size == static_cast<std::size_t>(-1) || size == static_cast<std::size_t>(-2)
        ? 0
        : std::max<std::size_t>(size, 1);
}

std::string withUnit(double value, const std::vector<const char*>& units)
{
    std::size_t unit = 0;
    for (; value >= 999.5 && unit + 1 < units.size(); ++unit)
        value /= 1000;
    const int decimals = unit == 0 ? 0 : value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    return fixed(value, decimals) + " " + units[unit];
}

/// One of the terminal's two sizes; the usual one where there is no terminal, or one that does not tell.
std::size_t terminalSize(unsigned short winsize::*side, std::size_t usual)
{
    winsize size{};
    const bool told = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.*side != 0;
    return told ? size.*side : usual;
}

} // namespace

void useUtf8()
{
    std::setlocale(LC_CTYPE, "");
    if (std::string(::nl_langinfo(CODESET)) != "UTF-8")
        std::setlocale(LC_CTYPE, "C.UTF-8");
}

bool outputIsTerminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}

bool errorIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

std::size_t terminalWidth()
{
    return terminalSize(&winsize::ws_col, 80);
}

std::size_t terminalHeight()
{
    return terminalSize(&winsize::ws_row, 24);
}

std::size_t displayWidth(const std::string& text)
{
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) {
        wchar_t character = 0;
        const std::size_t size = decode(text, at, character);
        const int columns = size == 0 ? 1 : ::wcwidth(character);
        width += static_cast<std::size_t>(std::max(columns, 0));
        at += std::max<std::size_t>(size, 1);
    }
    return width;
}

std::string padded(const std::string& text, std::size_t width)
{
    const std::size_t own = displayWidth(text);
    return own < width ? text + std::string(width - own, ' ') : text;
}

std::string cutToWidth(const std::string& text, std::size_t width)
{
    std::string result;
    std::size_t column = 0;
    for (std::size_t at = 0; at < text.size();) {
        wchar_t character = 0;
        const std::size_t size = std::max<std::size_t>(decode(text, at, character), 1);
        const std::string letter = text.substr(at, size);
        column = letter == "\n" ? 0 : column + displayWidth(letter);
        if (column <= width)
            result += letter;
        at += size;
    }
    if (!result.empty() && result.back() == '\n')
        result.pop_back();
    return result;
}

std::string printable(const std::string& text)
{
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        wchar_t character = 0;
        const std::size_t size = decode(text, at, character);
        const bool control = size != 0 && (character < 0x20 || (character >= 0x7f && character < 0xa0));
        if (size == 0)
            result += "\uFFFD";
        else
            result += control ? std::string(" ") : text.substr(at, size);
        at += std::max<std::size_t>(size, 1);
    }
    return result;
}

std::string tableOf(const std::vector<std::vector<std::string>>& rows, const std::string& indent)
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line = indent;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += i + 1 < row.size() ? padded(row[i], widths[i] + 2) : row[i];
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

std::string bar(double share, std::size_t width)
{
    static constexpr std::array<const char*, 8> parts{"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const double clamped = std::clamp(share, 0.0, 1.0);
    auto eighths = static_cast<std::size_t>(std::lround(clamped * static_cast<double>(width) * 8));
    if (eighths == 0 && clamped > 0)
        eighths = 1;
    std::string text;
    for (std::size_t i = 0; i < eighths / 8; ++i)
        text += "█";
    return text + parts[eighths % 8];
}

std::string fixed(double value, int decimals)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return text.data();
}

std::string pidText(std::uint16_t pid)
{
    char text[24] = {};
    std::snprintf(text, sizeof text, "%u (0x%x)", static_cast<unsigned>(pid), static_cast<unsigned>(pid));
    return text;
}

std::string byteCount(double bytes)
{
    return withUnit(bytes, {"bytes", "kB", "MB", "GB", "TB"});
}

std::string bitRateText(double bitsPerSecond)
{
    return withUnit(bitsPerSecond, {"bit/s", "kbit/s", "Mbit/s", "Gbit/s"});
}

std::string microsecondsText(double microseconds)
{
    return withUnit(microseconds, {"µs", "ms", "s"});
}

std::string durationText(double seconds)
{
    const long all = std::lround(seconds);
    std::array<char, 64> text{};
    if (all >= 3600)
        std::snprintf(text.data(), text.size(), "%ld:%02ld:%02ld", all / 3600, all / 60 % 60, all % 60);
    else
        std::snprintf(text.data(), text.size(), "%ld:%02ld", all / 60, all % 60);
    return text.data();
}

std::string hexText(const std::string& bytes)
{
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto value = static_cast<unsigned char>(c);
        text += digits[value >> 4U];
        text += digits[value & 0x0FU];
    }
    return text;
}

std::string hexDump(const std::string& bytes)
{
    constexpr std::size_t perLine = 16;
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += perLine) {
        const std::string part = bytes.substr(at, perLine);
        std::array<char, 32> offset{};
        std::snprintf(offset.data(), offset.size(), "%06zx ", at);
        std::string hex;
        std::string letters;
        for (const char c : part) {
            hex += " " + hexText(std::string(1, c));
            letters +=
                std::isprint(static_cast<unsigned char>(c)) != 0 && static_cast<unsigned char>(c) < 0x80
                ? c
                : '.';
        }
        text += offset.data() + padded(hex, perLine * 3) + "  " + letters + "\n";
    }
    return text;
}

std::string fromHexText(const std::string& text)
{
    std::string digits;
    std::copy_if(
        text.begin(), text.end(), std::back_inserter(digits), [](char c) { return c != ' ' && c != ':'; });
    const auto isDigit = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
    if (digits.size() % 2 != 0 || !std::all_of(digits.begin(), digits.end(), isDigit))
        throw Failure(
            ExitCode::Usage, "\"" + text + "\" are no bytes in hexadecimal", "write them as 64 61 62 0a");
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2)
        bytes.push_back(static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16)));
    return bytes;
}

} // namespace tessary::ctl
