#include "client/tessaryctl/statefolder.h"

#include <cstdlib>

namespace tessary::ctl {

std::filesystem::path stateFolder()
{
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    const std::filesystem::path base = state != nullptr && *state != '\0' ? std::filesystem::path(state)
        : home != nullptr ? std::filesystem::path(home) / ".local/state"
                          : std::filesystem::path();
    return base.empty() ? base : base / "tessaryctl";
}

} // namespace tessary::ctl
