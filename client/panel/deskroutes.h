#pragma once

#include "client/panel/desk.h"
#include "client/panel/display.h"
#include "client/panel/hub.h"

#include <atomic>
#include <filesystem>
#include <httplib.h>

namespace tessary::panel {

/// What only a virtual instrument has: /api/desk, /api/display and /api/sound. All is borrowed; `ends` ends what is being
/// sent.
void addDeskRoutes(httplib::Server& server, Desk& desk);
struct Shown
{
    Display& display;
    const Hub& hub; ///< knows what plays
    const std::atomic<bool>& ends;
};
void addDisplayRoutes(httplib::Server& server, const Shown& shown);
void addSoundRoute(httplib::Server& server, const std::filesystem::path& file, const std::atomic<bool>& ends);

/// The same paths with a real instrument: a refusal that says so.
void addRealInstrumentRoutes(httplib::Server& server);

} // namespace tessary::panel
