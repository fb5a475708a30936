#pragma once

#include "client/tessaryctl/viewmodel.h"

#include <string>
#include <vector>

namespace tessary::ctl {

enum class ViewStyle { Plain, Title, Heading, Selected, Soft, Good, Bad };

/// Text at a place of the screen; it fits.
struct ViewPiece
{
    std::size_t row;
    std::size_t column;
    std::string text;
    ViewStyle style;
};

/// What the full-screen view looks like in a terminal of this size, from 1 x 1 on. `clock` is the time of
/// day. Tells the model how long a page is.
std::vector<ViewPiece> screenOf(
    ViewModel& model, std::size_t width, std::size_t height, const std::string& clock);

} // namespace tessary::ctl
