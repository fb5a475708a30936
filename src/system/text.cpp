#include "system/text.h"

#include <algorithm>

std::string withoutLineEnds(std::string text)
{
    const auto isLineEnd = [](char c) { return c == '\n' || c == '\r'; };
    text.erase(std::remove_if(text.begin(), text.end(), isLineEnd), text.end());
    return text;
}
