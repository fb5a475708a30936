#include "client/tessaryctl/groups.h"

#include "client/serverspec.h"
#include "client/tessaryctl/failure.h"

#include <arpa/inet.h>

namespace tessary::ctl {

using namespace client;

bool isGroup(const std::string& address)
{
    in_addr binary{};
    return ::inet_pton(AF_INET, address.c_str(), &binary) == 1 && IN_MULTICAST(ntohl(binary.s_addr));
}

void changeServer(Context& context, Controller& controller, const StreamServer& server)
{
    const auto known = context.memory().server();
    controller.setServer(server);
    const bool stays = known.has_value() && !known->groupLeft;
    const std::string before = stays ? parseServer({known->url}).address : "";
    if (isGroup(before) && before != server.address)
        context.note("remark: the instrument stays in group " + before
            + ", whose stream keeps coming in; to leave it: tessaryctl server --leave " + before);
}

void changeServer(Context& context, Controller& controller, const std::vector<std::string>& words)
{
    if (!words.empty())
        changeServer(context, controller, parseServer(words));
}

void leaveGroup(Context& context, const std::string& group, std::optional<int> vlan)
{
    if (!isGroup(group))
        throw Failure(ExitCode::Usage, "\"" + group + "\" is no multicast group",
            "groups are 224.0.0.0 to 239.255.255.255");
    // smcroute joined it. Newer ones leave by smcroutectl alone, older ones have no such program.
    const std::string what = (vlan.has_value() ? "eth0." + std::to_string(*vlan) : "eth0") + " " + group;
    context.controller().runCommand("smcroutectl leave " + what + " || smcroute -l " + what);
    context.memory().leftGroup(group);
}

} // namespace tessary::ctl
