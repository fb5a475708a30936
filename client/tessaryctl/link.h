#pragma once

#include "client/controller.h"

namespace tessary::ctl {

/// Throws Failure NoLink: the instrument's Ethernet is not connected.
[[noreturn]] void throwNoLink();

/// Asks the instrument; throws Failure NoLink when its Ethernet is not connected.
void requireLink(client::Controller& controller);

} // namespace tessary::ctl
