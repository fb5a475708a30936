#include "client/psi/conditionalaccess.h"

#include <algorithm>
#include <iterator>

namespace tessary::client {

namespace {

constexpr std::uint8_t conditionalAccessDescriptor = 0x09;

struct System
{
    std::uint8_t upperByte; ///< of CA_system_ID: each holder has a range of 256
    const char* name;
};

constexpr System systems[] = {
    {0x01, "Mediaguard"},
    {0x05, "Viaccess"},
    {0x06, "Irdeto"},
    {0x09, "VideoGuard"},
    {0x0b, "Conax"},
    {0x0d, "CryptoWorks"},
    {0x0e, "PowerVu"},
    {0x17, "BetaCrypt"},
    {0x18, "Nagravision"},
    {0x26, "BISS"},
};

void append(std::vector<ConditionalAccess>& found, const std::vector<Descriptor>& descriptors)
{
    constexpr std::size_t fixedSize = 4;
    for (const Descriptor& descriptor : descriptors) {
        const Bytes& data = descriptor.data;
        if (descriptor.tag != conditionalAccessDescriptor || data.size() < fixedSize)
            continue;
        const auto systemId = static_cast<std::uint16_t>(data[0] << 8U | data[1]);
        const auto pid = static_cast<std::uint16_t>((data[2] & 0x1FU) << 8U | data[3]);
        const bool known = std::any_of(found.begin(), found.end(),
            [&](const ConditionalAccess& one) { return one.systemId == systemId && one.pid == pid; });
        if (!known)
            found.push_back({systemId, pid});
    }
}

} // namespace

std::vector<ConditionalAccess> conditionalAccessOf(const ProgramMap& program)
{
    std::vector<ConditionalAccess> found;
    append(found, program.descriptors);
    for (const ProgramMap::Stream& stream : program.streams)
        append(found, stream.descriptors);
    return found;
}

std::string conditionalAccessName(std::uint16_t systemId)
{
    const auto found = std::find_if(std::begin(systems), std::end(systems),
        [systemId](const System& system) { return system.upperByte == systemId >> 8U; });
    return found != std::end(systems) ? found->name : "";
}

} // namespace tessary::client
