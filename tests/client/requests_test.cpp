#include "client/requests.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <vector>

using namespace tessary::client;

namespace {

// The table of docs/protocol.md: "| 12 | `getethernetmes?` | ...".
std::vector<std::string> wordsOfThePage()
{
    std::ifstream page(TESSARY_SOURCE_DIR "/docs/protocol.md");
    const std::regex row(R"(\| ([0-9]+) \| `([^`]+)` .*)");
    std::vector<std::string> words;
    for (std::string line; std::getline(page, line);) {
        std::smatch parts;
        if (std::regex_match(line, parts, row) && std::stoul(parts[1]) == words.size() + 1)
            words.push_back(parts[2]);
    }
    return words;
}

TEST(Requests, AreTheRowsOfTheProtocolPageInItsOrder)
{
    std::vector<std::string> words;
    for (const Request* request : request::all)
        words.emplace_back(request->word);
    ASSERT_FALSE(words.empty());
    EXPECT_EQ(words, wordsOfThePage());
}

TEST(Requests, FixedAnswersHaveASize)
{
    for (const Request* request : request::all) {
        const bool sized = request->answer == AnswerEnd::Fixed || request->answer == AnswerEnd::Values;
        EXPECT_EQ(sized, request->size != 0) << request->word;
    }
}

} // namespace
