#include "client/panel/linelog.h"

#include "client/tessaryctl/clocktime.h"
#include "client/tessaryctl/terminal.h"

#include <utility>

namespace tessary::panel {

void LineLog::add(client::SerialLine::Direction direction, std::string_view bytes)
{
    const bool to = direction == client::SerialLine::Direction::To;
    const std::lock_guard lock(m_mutex);
    m_gathered.push_back({{"time", ctl::isoTime(std::chrono::system_clock::now())},
        {"direction", to ? "to" : "from"}, {"hex", ctl::hexText(std::string(bytes))}});
}

void LineLog::flush()
{
    constexpr std::size_t kept = 500;
    Json entries = Json::array();
    {
        const std::lock_guard lock(m_mutex);
        std::swap(entries, m_gathered);
    }
    m_hub.append("line_log", entries, kept);
}

} // namespace tessary::panel
