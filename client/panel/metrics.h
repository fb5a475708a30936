#pragma once

#include "client/panel/hub.h"
#include "client/tessaryctl/failure.h"

#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace tessary::panel {

/// What a monitoring system asks for, as OpenMetrics text. May be used from any thread.
class Metrics
{
public:
    void commandEnded(const std::string& command, int status, double seconds);
    void lineFailed(ctl::ExitCode code);

    /// `state`: all topics.
    std::string text(const Json& state) const;

private:
    struct Command
    {
        long count = 0;
        double seconds = 0;
    };

    mutable std::mutex m_mutex;
    std::map<std::pair<std::string, int>, Command> m_commands; ///< by sub-commands and exit status
    std::map<std::string, long> m_failures; ///< of the line, by kind
};

} // namespace tessary::panel
