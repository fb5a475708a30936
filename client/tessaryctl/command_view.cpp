// All in one place on a full screen: view.
#include "client/serverspec.h"
#include "client/tessaryctl/clocktime.h"
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/viewmodel.h"
#include "client/tessaryctl/viewscreen.h"
#include "client/tessaryctl/viewterminal.h"
#include "client/tessaryctl/viewworker.h"

#include <memory>

namespace tessary::ctl {

namespace {

/// The screen is looked after so often: news of the instrument, the clock.
constexpr std::chrono::milliseconds tick{100};

void runScreen(ViewTerminal& terminal, ViewModel& model, ViewWorker& worker, const InterruptGuard& guard)
{
    while (!model.quit && !guard.interrupted()) {
        for (const auto& news : worker.takeNews())
            news(model);
        terminal.draw(screenOf(model, terminal.width(), terminal.height(),
            localTime(std::chrono::system_clock::now(), "%H:%M:%S")));
        const auto key = terminal.key(tick);
        if (!key.has_value())
            continue;
        if (const auto order = model.press(*key))
            worker.give(*order);
    }
}

void view(Context& context, const std::vector<std::string>& words)
{
    std::optional<client::StreamServer> server;
    ViewModel model;
    if (!words.empty()) {
        server = client::parseServer(words);
        model.server = client::serverUrl(*server);
    }
    model.port = context.options.port.empty() ? defaultPort() : context.options.port;
    context.controller(); // without an instrument there is nothing to view
    const InterruptGuard guard;
    auto terminal = std::make_unique<ViewTerminal>();
    ViewWorker worker(context, server);
    runScreen(*terminal, model, worker, guard);
    terminal.reset(); // before the worker waits for the last answer
}

} // namespace

void addView(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(
        app, context, "view", "Full screen: services, PIDs, descriptors, what plays, reception, recording");
    auto server = std::make_shared<std::vector<std::string>>();
    sub->add_option("server", *server, "stream server to set first, as with tessaryctl server")
        ->expected(0, 5);
    sub->footer(
        "? lists the keys. It works on any terminal from 40 x 12 on, with or without colour (NO_COLOR).");
    sub->callback([&context, server] { view(context, *server); });
}

} // namespace tessary::ctl
