#pragma once

#include "client/instrumentsettings.h"
#include "client/tessaryctl/context.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace tessary::ctl {

/// null for nothing.
template <typename Value> Json orNull(const std::optional<Value>& value)
{
    return value.has_value() ? Json(*value) : Json();
}

/// null for nothing; otherwise a whole number.
Json roundedOrNull(std::optional<double> value);

Json jsonOfVersion(const client::VersionInfo& info);

/// "server" and "server_time": what this tool set last on the port, both null when it does not know.
Json jsonOfServer(const InstrumentMemory& memory);

} // namespace tessary::ctl
