#pragma once

#include "client/tessaryctl/context.h"

#include <optional>
#include <string>
#include <vector>

namespace tessary::ctl {

/// An IPv4 multicast address, dotted decimal.
bool isGroup(const std::string& address);

/// Sets the stream server. The instrument joins its group and leaves none: says so when this program set
/// another group last, and how to leave that.
void changeServer(Context& context, client::Controller& controller, const client::StreamServer& server);

/// The same with a server as a person writes it; without words the server stays.
void changeServer(Context& context, client::Controller& controller, const std::vector<std::string>& words);

/// Has the instrument leave a group on the wired interface, or on this VLAN of it. Throws Failure Usage when
/// `group` is none.
void leaveGroup(Context& context, const std::string& group, std::optional<int> vlan);

} // namespace tessary::ctl
