#include "client/ebs.h"

#include "client/answererror.h"

#include <array>
#include <cstdio>
#include <map>
#include <regex>

namespace tessary::client {

namespace {

int hexadecimal(const std::string& digits)
{
    return std::stoi(digits, nullptr, 16);
}

std::string nameOf(const std::map<int, std::string>& names, int code)
{
    const auto found = names.find(code);
    return found != names.end() ? found->second : "code " + std::to_string(code);
}

} // namespace

std::string ebsIndex(int index)
{
    std::array<char, 12> text{};
    std::snprintf(text.data(), text.size(), "%02X", static_cast<unsigned>(index));
    return text.data();
}

EbsStatus parseEbsStatus(const std::string& frame)
{
    static const std::regex form(R"(\*17_a\.FL:02_NS:([0-9a-f]{2,4})\$_DS:([0-9a-f]{2,4}))");
    std::smatch parts;
    if (!std::regex_match(frame, parts, form))
        throw AnswerError("no EBS status frame: \"" + frame + "\"");
    return {hexadecimal(parts[1]), hexadecimal(parts[2])};
}

EbsDecoderInfo parseEbsDecoderInfo(const std::string& frame)
{
    static const std::regex form(
        R"(\*32_e\.DI:([0-9a-f]{4})_([0-9a-f]{4})_([0-9a-f]{4})_0000_([0-9a-f]{4})_0000_0000_0000_\$)");
    std::smatch parts;
    if (!std::regex_match(frame, parts, form))
        throw AnswerError("no EBS decoder information frame: \"" + frame + "\"");
    return {hexadecimal(parts[1]), hexadecimal(parts[2]), hexadecimal(parts[3]), hexadecimal(parts[4])};
}

std::string ebsVideoName(int code)
{
    static const std::map<int, std::string> names{{0, "unknown"}, {1, "MPEG-1 or MPEG-2"}, {2, "H.264"},
        {3, "MPEG-4 Visual"}, {8, "VP6"}, {10, "VP8"}, {14, "VP9"}, {15, "HEVC"}};
    return nameOf(names, code);
}

std::string ebsAudioName(int code)
{
    static const std::map<int, std::string> names{{0, "unknown"}, {1, "AAC or MPEG-2"}, {2, "AC-3"},
        {3, "MPEG-1 layer 1"}, {4, "MPEG-1 layer 2"}, {5, "MPEG-1 layer 3"}, {7, "E-AC-3"}, {11, "AC-4"}};
    return nameOf(names, code);
}

} // namespace tessary::client
