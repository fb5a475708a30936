#include "client/tessaryctl/jsonvalue.h"

#include <cmath>

namespace tessary::ctl {

Json roundedOrNull(std::optional<double> value)
{
    return value.has_value() ? Json(std::llround(*value)) : Json();
}

Json jsonOfVersion(const client::VersionInfo& info)
{
    const auto built = info.fpgaBuilt();
    return {{"software", info.software}, {"fpga_built", orNull(built)},
        {"fpga_problem", built.has_value() ? Json() : Json(info.fpga)},
        {"fpga_configured", orNull(info.fpgaConfigured)}};
}

Json jsonOfServer(const InstrumentMemory& memory)
{
    const auto& server = memory.server();
    return {{"server", server.has_value() ? Json(server->url) : Json()},
        {"server_time", server.has_value() ? Json(server->time) : Json()}};
}

} // namespace tessary::ctl
