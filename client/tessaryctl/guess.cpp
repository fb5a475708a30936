#include "client/tessaryctl/guess.h"

#include "client/tessaryctl/appnames.h"

#include <algorithm>
#include <numeric>

namespace tessary::ctl {

namespace {

/// Letters to put in, take out, change, or exchange with their neighbours, until one word is the other (the
/// optimal string alignment distance).
std::size_t distance(const std::string& one, const std::string& other)
{
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(other.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        std::vector<std::size_t> row(other.size() + 1, i);
        for (std::size_t k = 1; k <= other.size(); ++k) {
            const std::size_t change = one[i - 1] == other[k - 1] ? 0 : 1;
            row[k] = std::min({last[k] + 1, row[k - 1] + 1, last[k - 1] + change});
            if (i > 1 && k > 1 && one[i - 1] == other[k - 2] && one[i - 2] == other[k - 1])
                row[k] = std::min(row[k], beforeLast[k - 2] + 1);
        }
        beforeLast = std::exchange(last, std::move(row));
    }
    return last.back();
}

} // namespace

std::string guessOf(const CLI::App& app, const std::vector<std::string>& unknown)
{
    for (const std::string& given : unknown) {
        const std::string word = given.substr(0, given.find('='));
        const bool option = word.rfind("--", 0) == 0;
        std::size_t nearest = (option ? word.size() - 2 : word.size()) / 3 + 1; // farther is another word
        std::string best;
        for (const std::string& name : option ? optionNames(app) : subcommandNames(app)) {
            const std::size_t far = distance(word, name);
            if (far < nearest || (far == nearest && best.empty())) {
                nearest = far;
                best = name;
            }
        }
        if (!best.empty())
            return best;
    }
    return {};
}

} // namespace tessary::ctl
