#include "client/tessaryctl/quantities.h"

#include <cmath>
#include <cstdlib>
#include <map>
#include <string>

namespace tessary::ctl {

namespace {

using Units = std::map<std::string, double>;

CLI::Validator withUnit(const Units& units, double most, const std::string& remedy)
{
    const auto transform = [units, most, remedy](std::string& text) -> std::string {
        char* end = nullptr;
        const double number = std::strtod(text.c_str(), &end);
        const auto unit = units.find(end);
        if (end == text.c_str() || unit == units.end() || !(number >= 0) || number * unit->second > most)
            return "\"" + text + "\" is not understood: " + remedy;
        text = std::to_string(std::llround(number * unit->second));
        return {};
    };
    return {transform, ""};
}

} // namespace

CLI::Validator durationWithUnit()
{
    constexpr double year = 366 * 86400.0;
    return withUnit(
        {{"", 1}, {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}}, year, "write 90, 30m, 8h or 2d");
}

CLI::Validator rateWithUnit()
{
    return withUnit({{"", 1}, {"k", 1e3}, {"M", 1e6}, {"G", 1e9}}, 1e12, "write 9500000, 9500k or 9.5M");
}

} // namespace tessary::ctl
