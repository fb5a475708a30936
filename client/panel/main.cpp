#include "client/panel/options.h"
#include "client/panel/panel.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/terminal.h"

#include <csignal>
#include <iostream>

namespace {

using namespace tessary;

/// Signals that end the panel. They are blocked in every thread, and taken here.
sigset_t endingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, each);
    return signals;
}

int run(const panel::Options& options)
{
    const sigset_t signals = endingSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN); // a browser goes away
    panel::Panel panel(options);
    std::cout << "http://" << panel.address() << std::endl;
    int signal = 0;
    ::sigwait(&signals, &signal);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    ctl::useUtf8();
    try {
        panel::Options options;
        if (const auto status = panel::parseOptions(argc, argv, options))
            return *status;
        return run(options);
    } catch (const ctl::Failure& failure) {
        std::cerr << "tessary-panel: " << failure.what() << '\n';
        if (!failure.remedy().empty())
            std::cerr << "    " << failure.remedy() << '\n';
        return static_cast<int>(failure.code());
    } catch (const std::exception& error) {
        std::cerr << "tessary-panel: " << error.what() << '\n';
        return static_cast<int>(ctl::ExitCode::Internal);
    }
}
