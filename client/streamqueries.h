#pragma once

#include "client/controller.h"
#include "client/streamtables.h"

#include <optional>

namespace tessary::client {

// What the instrument knows of the current stream at the moment, read; nothing while it has no such table.
std::optional<ServiceTable> servicesNow(Controller& controller);
std::optional<NetworkTable> networkNow(Controller& controller);
std::optional<ProgramMap> programNow(Controller& controller);

} // namespace tessary::client
