#include "measuredvalues.h"

#include <cstring>
#include <sstream>

namespace tessary::test {

using client::Milliseconds;

namespace {

constexpr Milliseconds patience{10000}; // the first measurement sets the capture up
const std::string notConnected = "not connected\n";

} // namespace

std::optional<MeasuredValues> askMeasurement(client::SerialLine& line)
{
    line.discardInput();
    line.write("getethernetmes?\n");
    std::string answer = line.readExactly(notConnected.size(), patience);
    if (answer == notConnected)
        return std::nullopt;
    MeasuredValues values;
    answer += line.readExactly(sizeof values - answer.size(), patience);
    std::memcpy(&values, answer.data(), sizeof values); // both sides are little-endian
    return values;
}

std::vector<std::int64_t> askInterArrivalTimes(client::SerialLine& line)
{
    line.discardInput();
    line.write("getiat?\n");
    std::istringstream answer(line.readUntilSilence(Milliseconds(2000), Milliseconds(150)));
    std::vector<std::int64_t> times;
    for (std::string field; std::getline(answer, field, ';');)
        times.push_back(std::stoll(field));
    return times;
}

std::string askInterface(client::SerialLine& line)
{
    line.discardInput();
    line.write("interface?\n");
    return line.readLine(patience);
}

} // namespace tessary::test
