#pragma once

#include "client/tessaryctl/context.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace tessary::panel {

using ctl::Json;

/// JSON as it goes out; invalid UTF-8 is replaced.
std::string textOf(const Json& value);

/// The one state that all browsers see: topics with a value each, and what became of them for those that listen. May be
/// used from any thread.
class Hub
{
public:
    /// Where a listener has come to.
    struct Place
    {
        std::uint64_t next = 0; ///< number of the event that follows
        bool begun = false; ///< has been told every topic once
    };

    /// Tells a topic's value, when it is another one than before.
    void set(const std::string& topic, const Json& value);
    /// Adds entries, an array, to a topic whose last `kept` are told to those who come later.
    void append(const std::string& topic, const Json& entries, std::size_t kept);

    Json state() const;
    /// Null without such a topic.
    Json valueOf(const std::string& topic) const;

    /// What has come since, as server-sent events; every topic once for one that begins, or has fallen too far
    /// behind. Waits at most `patience`; empty when nothing came, no value once the hub is closed.
    std::optional<std::string> await(Place& place, std::chrono::milliseconds patience) const;

    /// Nothing comes any more: ends all waiting.
    void close();

private:
    struct Topic
    {
        std::string text; ///< JSON; of entries empty
        std::deque<std::string> entries; ///< each JSON
        bool appended = false;

        std::string value() const;
    };

    void publish(const std::string& topic, const std::string& text);
    std::string everything() const;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_news;
    std::map<std::string, Topic> m_topics;
    std::deque<std::string> m_events; ///< the last ones, as they go out
    std::size_t m_bytes = 0; ///< of m_events
    std::uint64_t m_next = 1; ///< number of the next event
    bool m_closed = false;
};

} // namespace tessary::panel
