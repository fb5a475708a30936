#include "client/measurement.h"

#include "client/answererror.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <numeric>

namespace tessary::client {

namespace {

constexpr std::size_t valueCount = 7;
constexpr std::int64_t outlierDistance = 1000; // µs; below that a bar more or less is no matter
constexpr std::int64_t longestInterval = 100'000'000'000'000; // three years; the time since 1970 is beyond it

std::int32_t littleEndian(const std::string& bytes, std::size_t offset)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i > 0; --i)
        value = value << 8U | static_cast<std::uint8_t>(bytes[offset + i - 1]);
    return static_cast<std::int32_t>(value);
}

std::int64_t percentile(const std::vector<std::int64_t>& sorted, std::size_t percent)
{
    return sorted[std::min(sorted.size() - 1, sorted.size() * percent / 100)];
}

} // namespace

Measurement decodeMeasurement(const std::string& bytes)
{
    if (bytes.size() != valueCount * 4)
        throw AnswerError("a measurement has 28 bytes, " + std::to_string(bytes.size()) + " came");
    std::array<std::int32_t, valueCount> values{};
    for (std::size_t i = 0; i < valueCount; ++i)
        values[i] = littleEndian(bytes, i * 4);
    if (values[0] != 0 && values[0] != 1)
        throw AnswerError("a measurement begins with 0 or 1, not " + std::to_string(values[0]));
    return {values[0] == 1, values[1], values[2], values[3], values[4], values[5], values[6]};
}

std::optional<std::int64_t> frameBytes(const Measurement& measurement, bool rtp)
{
    constexpr std::int64_t headers = 14 + 20 + 8; // Ethernet, IPv4, UDP
    constexpr std::int64_t rtpHeader = 12;
    if (measurement.packetSize <= 0 || measurement.packetsPerDatagram <= 0)
        return std::nullopt;
    return std::int64_t{measurement.packetsPerDatagram} * measurement.packetSize + headers
        + (rtp ? rtpHeader : 0);
}

std::optional<std::int64_t> transportRate(const Measurement& measurement, bool rtp)
{
    constexpr double packet = 188;
    const auto frame = frameBytes(measurement, rtp);
    if (!frame.has_value())
        return std::nullopt;
    return std::llround(
        measurement.bitRate * (measurement.packetsPerDatagram * packet) / static_cast<double>(*frame));
}

std::vector<std::int64_t> parseInterArrivalTimes(const std::string& text)
{
    std::vector<std::int64_t> times;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        std::int64_t value = 0;
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc() || next == end || *next != ';')
            throw AnswerError("inter-arrival times are numbers with a semicolon each; at byte "
                + std::to_string(at - text.data()) + " there is none");
        times.push_back(value);
        at = next + 1;
    }
    return times;
}

std::size_t removeAbsoluteTimes(std::vector<std::int64_t>& times)
{
    const auto isNoInterval = [](std::int64_t t) { return t > longestInterval || t < -longestInterval; };
    const auto kept = std::remove_if(times.begin(), times.end(), isNoInterval);
    const auto removed = static_cast<std::size_t>(times.end() - kept);
    times.erase(kept, times.end());
    return removed;
}

InterArrivalStatistics statisticsOf(std::vector<std::int64_t> times)
{
    InterArrivalStatistics result;
    if (times.empty())
        return result;
    std::sort(times.begin(), times.end());
    const auto count = static_cast<double>(times.size());
    result.count = times.size();
    result.shortest = times.front();
    result.longest = times.back();
    result.mean = std::accumulate(times.begin(), times.end(), 0.0) / count;
    const auto addSquare = [&](double sum, std::int64_t t) {
        const double difference = static_cast<double>(t) - result.mean;
        return sum + difference * difference;
    };
    result.deviation = std::sqrt(std::accumulate(times.begin(), times.end(), 0.0, addSquare) / count);
    result.median = percentile(times, 50);
    result.percentile95 = percentile(times, 95);
    result.percentile99 = percentile(times, 99);
    return result;
}

std::vector<HistogramBin> histogramOf(const std::vector<std::int64_t>& times, std::size_t bins)
{
    if (times.empty() || bins == 0)
        return {};
    std::vector<std::int64_t> sorted = times;
    std::sort(sorted.begin(), sorted.end());
    const std::int64_t shortest = sorted.front();
    const std::int64_t longest = sorted.back();
    const std::int64_t usual = percentile(sorted, 99);
    const bool outliers = bins > 2 && longest - shortest > 2 * (usual - shortest) + outlierDistance;
    const std::int64_t span = (outliers ? usual : longest) - shortest + 1;
    const auto wanted = static_cast<std::int64_t>(outliers ? bins - 1 : bins);
    const std::int64_t width = (span + wanted - 1) / wanted;
    std::vector<HistogramBin> result;
    for (std::int64_t from = shortest; from < shortest + span; from += width)
        result.push_back({from, from + width, 0, false});
    if (outliers)
        result.push_back({result.back().to, longest + 1, 0, true});
    for (const std::int64_t time : times) {
        const auto index = static_cast<std::size_t>((time - shortest) / width);
        ++result[std::min(index, result.size() - 1)].count;
    }
    return result;
}

} // namespace tessary::client
