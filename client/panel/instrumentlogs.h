#pragma once

#include "client/panel/followedfile.h"
#include "client/panel/hub.h"

#include <filesystem>

namespace tessary::panel {

/// What a virtual instrument notes of its daemon, told under "commands" and "daemon_log". Used from one thread.
class InstrumentLogs
{
public:
    InstrumentLogs(Hub& hub, const std::filesystem::path& folder)
        : m_hub(hub)
        , m_commands(folder / "commands.log")
        , m_daemon(folder / "daemon.log")
    {
    }

    /// Tells what is new.
    void follow();

private:
    Hub& m_hub;
    FollowedFile m_commands;
    FollowedFile m_daemon;
};

} // namespace tessary::panel
