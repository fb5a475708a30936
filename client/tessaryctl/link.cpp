#include "client/tessaryctl/link.h"

#include "client/tessaryctl/failure.h"

namespace tessary::ctl {

void throwNoLink()
{
    throw Failure(ExitCode::NoLink, "the instrument's Ethernet is not connected",
        "plug the cable in (virtual instrument: bench/instrument link up); tessaryctl interface shows the "
        "state");
}

void requireLink(client::Controller& controller)
{
    if (!controller.interfaceAddress().has_value())
        throwNoLink();
}

} // namespace tessary::ctl
