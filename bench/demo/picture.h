#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tessary::observe {

struct Rgb
{
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
};

/// A picture of the display, 8 bits a colour.
struct Picture
{
    unsigned width = 0; ///< pixels
    unsigned height = 0; ///< pixels
    std::vector<Rgb> pixels; ///< row by row from the top
};

/// Reads a binary PPM file (P6, 255 levels). Throws std::runtime_error naming the file and what is wrong with
/// it.
Picture readPpm(const std::string& path);

/// The colour that most of the picture has: the mean over the pixels of the fullest of 4096 equal colour
/// cells and its neighbours, so that noise and compression do not split it. `share` (0 to 1, may be null)
/// tells how much of the picture that is.
Rgb dominantColour(const Picture& picture, double* share = nullptr);

/// No channel differs by more than `tolerance` levels.
bool isNear(Rgb colour, Rgb expected, int tolerance);

/// "#rrggbb".
std::string colourText(Rgb colour);

} // namespace tessary::observe
