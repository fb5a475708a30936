#include "demo/picture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace tessary::observe {

namespace {

constexpr unsigned cellsPerChannel = 16;

unsigned cellOf(std::uint8_t level)
{
    return level * cellsPerChannel / 256U;
}

unsigned cellIndex(Rgb pixel)
{
    return (cellOf(pixel.red) * cellsPerChannel + cellOf(pixel.green)) * cellsPerChannel + cellOf(pixel.blue);
}

bool isNeighbour(Rgb pixel, Rgb cell)
{
    const auto close = [](unsigned a, unsigned b) { return a + 1 >= b && b + 1 >= a; };
    return close(cellOf(pixel.red), cell.red) && close(cellOf(pixel.green), cell.green)
        && close(cellOf(pixel.blue), cell.blue);
}

/// Cell coordinates of the cell that holds most pixels.
Rgb fullestCell(const Picture& picture)
{
    std::array<std::size_t, cellsPerChannel * cellsPerChannel * cellsPerChannel> counts{};
    for (const Rgb pixel : picture.pixels)
        ++counts[cellIndex(pixel)];
    const auto index = static_cast<unsigned>(std::max_element(counts.begin(), counts.end()) - counts.begin());
    return {static_cast<std::uint8_t>(index / (cellsPerChannel * cellsPerChannel)),
        static_cast<std::uint8_t>(index / cellsPerChannel % cellsPerChannel),
        static_cast<std::uint8_t>(index % cellsPerChannel)};
}

/// One number of a PPM header; skips white space and comments before it.
unsigned headerNumber(std::istream& file)
{
    while (file >> std::ws && file.peek() == '#') {
        std::string comment;
        std::getline(file, comment);
    }
    unsigned number = 0;
    file >> number;
    return number;
}

} // namespace

Picture readPpm(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("there is no picture " + path + "; the display has shown nothing yet");
    std::string magic(2, '\0');
    file.read(magic.data(), 2);
    Picture picture;
    picture.width = headerNumber(file);
    picture.height = headerNumber(file);
    const unsigned levels = headerNumber(file);
    if (magic != "P6" || levels != 255 || picture.width == 0 || picture.height == 0 || picture.width > 16384
        || picture.height > 16384)
        throw std::runtime_error(path + " is not a binary PPM picture of 255 levels");
    file.get(); // the single white space after the header
    picture.pixels.resize(static_cast<std::size_t>(picture.width) * picture.height);
    std::vector<char> row(static_cast<std::size_t>(picture.width) * 3);
    for (unsigned y = 0; y < picture.height; ++y) {
        if (!file.read(row.data(), static_cast<std::streamsize>(row.size())))
            throw std::runtime_error(path + " is cut short in row " + std::to_string(y));
        for (unsigned x = 0; x < picture.width; ++x) {
            const auto level = [&](unsigned channel) {
                return static_cast<std::uint8_t>(row[x * 3 + channel]);
            };
            picture.pixels[static_cast<std::size_t>(y) * picture.width + x] = {level(0), level(1), level(2)};
        }
    }
    return picture;
}

Rgb dominantColour(const Picture& picture, double* share)
{
    const Rgb cell = fullestCell(picture);
    std::array<std::uint64_t, 3> sums{};
    std::uint64_t count = 0;
    for (const Rgb pixel : picture.pixels) {
        if (!isNeighbour(pixel, cell))
            continue;
        sums[0] += pixel.red;
        sums[1] += pixel.green;
        sums[2] += pixel.blue;
        ++count;
    }
    if (share != nullptr)
        *share = count == 0 ? 0.0 : static_cast<double>(count) / static_cast<double>(picture.pixels.size());
    if (count == 0)
        return {};
    const auto mean = [&](unsigned channel) { return static_cast<std::uint8_t>(sums[channel] / count); };
    return {mean(0), mean(1), mean(2)};
}

bool isNear(Rgb colour, Rgb expected, int tolerance)
{
    const auto close = [tolerance](int a, int b) { return std::abs(a - b) <= tolerance; };
    return close(colour.red, expected.red) && close(colour.green, expected.green)
        && close(colour.blue, expected.blue);
}

std::string colourText(Rgb colour)
{
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "#%02x%02x%02x", static_cast<unsigned>(colour.red),
        static_cast<unsigned>(colour.green), static_cast<unsigned>(colour.blue));
    return text.data();
}

} // namespace tessary::observe
