#pragma once

#include <filesystem>

namespace tessary::ctl {

/// Where what is kept between two runs goes: "tessaryctl" in the XDG state folder; empty when there is none.
/// It need not exist.
std::filesystem::path stateFolder();

} // namespace tessary::ctl
