#pragma once

#include "client/controller.h"
#include "client/streamtables.h"

#include <optional>

namespace tessary::ctl {

// What the instrument knows of the current stream at the moment, read; nothing while it has no such table.
std::optional<client::ServiceTable> servicesNow(client::Controller& controller);
std::optional<client::NetworkTable> networkNow(client::Controller& controller);
std::optional<client::ProgramMap> programNow(client::Controller& controller);

} // namespace tessary::ctl
