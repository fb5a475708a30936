#include "client/panel/hub.h"

namespace tessary::panel {

namespace {

/// A listener that is further behind is told everything anew.
constexpr std::size_t mostBytes = 4000000;

std::string eventText(std::uint64_t number, const std::string& topic, const std::string& data)
{
    return "id: " + std::to_string(number) + "\nevent: " + topic + "\ndata: " + data + "\n\n";
}

} // namespace

std::string textOf(const Json& value)
{
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Hub::Topic::value() const
{
    if (!appended)
        return text;
    std::string all = "[";
    for (const std::string& entry : entries)
        all += (all.size() > 1 ? "," : "") + entry;
    return all + "]";
}

void Hub::set(const std::string& topic, const Json& value)
{
    const std::string text = textOf(value);
    const std::lock_guard lock(m_mutex);
    Topic& known = m_topics[topic];
    if (known.text == text)
        return;
    known.text = text;
    publish(topic, text);
}

void Hub::append(const std::string& topic, const Json& entries, std::size_t kept)
{
    if (entries.empty())
        return;
    const std::lock_guard lock(m_mutex);
    Topic& known = m_topics[topic];
    known.appended = true;
    for (const Json& entry : entries)
        known.entries.push_back(textOf(entry));
    while (known.entries.size() > kept)
        known.entries.pop_front();
    publish(topic, textOf(entries));
}

void Hub::publish(const std::string& topic, const std::string& text)
{
    m_events.push_back(eventText(m_next++, topic, text));
    m_bytes += m_events.back().size();
    while (m_bytes > mostBytes && m_events.size() > 1) {
        m_bytes -= m_events.front().size();
        m_events.pop_front();
    }
    m_news.notify_all();
}

std::string Hub::everything() const
{
    std::string all;
    for (const auto& [name, topic] : m_topics)
        all += eventText(m_next - 1, name, topic.value());
    return all;
}

Json Hub::state() const
{
    const std::lock_guard lock(m_mutex);
    Json all = Json::object();
    for (const auto& [name, topic] : m_topics)
        all[name] = Json::parse(topic.value());
    return all;
}

Json Hub::valueOf(const std::string& topic) const
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_topics.find(topic);
    return found == m_topics.end() ? Json() : Json::parse(found->second.value());
}

std::optional<std::string> Hub::await(Place& place, std::chrono::milliseconds patience) const
{
    std::unique_lock lock(m_mutex);
    m_news.wait_for(lock, patience, [&] { return m_closed || !place.begun || place.next < m_next; });
    if (m_closed)
        return std::nullopt;
    const std::uint64_t first = m_next - m_events.size();
    std::string text;
    if (!place.begun || place.next < first) {
        text = everything();
    } else {
        for (std::uint64_t number = place.next; number < m_next; ++number)
            text += m_events[static_cast<std::size_t>(number - first)];
    }
    place = {m_next, true};
    return text;
}

void Hub::close()
{
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    m_news.notify_all();
}

} // namespace tessary::panel
