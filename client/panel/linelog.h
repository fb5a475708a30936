#pragma once

#include "client/panel/hub.h"
#include "client/serialline.h"

#include <mutex>
#include <string_view>

namespace tessary::panel {

/// What goes over the line, told under "line_log" in batches. May be used from any thread.
class LineLog
{
public:
    explicit LineLog(Hub& hub)
        : m_hub(hub)
    {
    }

    void add(client::SerialLine::Direction direction, std::string_view bytes);
    /// Tells what has gathered.
    void flush();

private:
    Hub& m_hub;
    std::mutex m_mutex;
    Json m_gathered = Json::array();
};

} // namespace tessary::panel
