#include "client/streamqueries.h"

namespace tessary::client {

std::optional<ServiceTable> servicesNow(Controller& controller)
{
    const Bytes bytes = controller.streamInfo();
    return bytes.empty() ? std::nullopt : std::optional(readServices(bytes));
}

std::optional<NetworkTable> networkNow(Controller& controller)
{
    const Bytes bytes = controller.networkInformation();
    return bytes.empty() ? std::nullopt : std::optional(readNetwork(bytes));
}

std::optional<ProgramMap> programNow(Controller& controller)
{
    const Bytes bytes = controller.programMap();
    return bytes.empty() ? std::nullopt : std::optional(readProgram(bytes));
}

} // namespace tessary::client
