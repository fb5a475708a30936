#include "client/tessaryctl/logentry.h"

#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <nlohmann/json.hpp>

namespace tessary::ctl {

namespace {

using Event = LogEntry::Event;

constexpr std::array<std::pair<Event, const char*>, 10> events{
    {{Event::Start, "start"}, {Event::Resumed, "resumed"}, {Event::Period, "period"},
        {Event::Absent, "absent"}, {Event::NoLink, "no-link"}, {Event::NoAnswer, "no-answer"},
        {Event::Gap, "gap"}, {Event::Changed, "changed"}, {Event::Missed, "missed"}, {Event::End, "end"}}};

std::optional<Event> eventOf(const std::string& name)
{
    for (const auto& [event, text] : events) {
        if (name == text)
            return event;
    }
    return std::nullopt;
}

/// The columns of the file from first to last: those of text, and the numbers between them.
constexpr std::array firstColumns{"time", "event", "server"};
constexpr std::array lastColumns{"seconds", "crossed", "note"};

std::string secondsText(const LogEntry& entry)
{
    return entry.seconds.has_value() ? fixed(*entry.seconds, 1) : "";
}

/// After RFC 4180; never over several lines.
std::string quoted(const std::string& field)
{
    std::string text = field;
    std::replace(text.begin(), text.end(), '\n', ' ');
    if (text.find_first_of("\",\r") == std::string::npos)
        return text;
    std::string result = "\"";
    for (const char c : text)
        result += c == '"' ? std::string("\"\"") : std::string(1, c);
    return result + "\"";
}

/// Nothing when a quotation mark is left open.
std::optional<std::vector<std::string>> fieldsOf(const std::string& line)
{
    std::vector<std::string> fields(1);
    bool open = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (open && c == '"' && i + 1 < line.size() && line[i + 1] == '"')
            fields.back() += line[++i];
        else if (c == '"')
            open = !open;
        else if (c == ',' && !open)
            fields.emplace_back();
        else if (c != '\r')
            fields.back() += c;
    }
    return open ? std::nullopt : std::optional(fields);
}

bool readNumber(const std::string& text, std::optional<std::int64_t>& value)
{
    if (text.empty())
        return true;
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, number);
    value = number;
    return error == std::errc() && next == end;
}

bool readSeconds(const std::string& text, std::optional<double>& value)
{
    if (text.empty())
        return true;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return *end == '\0';
}

/// One field into the entry; false when its text does not fit. Unknown columns are let be.
bool take(LogEntry& entry, const std::string& column, const std::string& text)
{
    if (column == "time") {
        const auto time = parseIsoTime(text);
        entry.time = time.value_or(WallTime());
        return time.has_value();
    }
    if (column == "event") {
        const auto event = eventOf(text);
        entry.event = event.value_or(Event::Period);
        return event.has_value();
    }
    if (column == "seconds")
        return readSeconds(text, entry.seconds);
    for (auto [name, value] : {std::pair{"server", &entry.server}, std::pair{"crossed", &entry.crossed},
             std::pair{"note", &entry.note}}) {
        if (column == name) {
            *value = text;
            return true;
        }
    }
    const auto& numbers = logNumbers();
    const auto number = std::find_if(
        numbers.begin(), numbers.end(), [&](const LogNumber& known) { return column == known.name; });
    return number == numbers.end() || readNumber(text, entry.*(number->value));
}

std::string csvLine(const LogEntry& entry)
{
    std::string line = isoTime(entry.time) + "," + nameOf(entry.event) + "," + quoted(entry.server);
    for (const LogNumber& number : logNumbers()) {
        const auto& value = entry.*(number.value);
        line += "," + (value.has_value() ? std::to_string(*value) : std::string());
    }
    return line + "," + secondsText(entry) + "," + quoted(entry.crossed) + "," + quoted(entry.note);
}

std::string jsonLine(const LogEntry& entry)
{
    Json value{{"time", isoTime(entry.time)}, {"event", nameOf(entry.event)}};
    if (!entry.server.empty())
        value["server"] = entry.server;
    for (const LogNumber& number : logNumbers()) {
        if ((entry.*(number.value)).has_value())
            value[number.name] = *(entry.*(number.value));
    }
    if (entry.seconds.has_value())
        value["seconds"] = std::strtod(secondsText(entry).c_str(), nullptr);
    if (!entry.crossed.empty())
        value["crossed"] = entry.crossed;
    if (!entry.note.empty())
        value["note"] = entry.note;
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<LogEntry> readJson(const std::string& line)
{
    const Json value = Json::parse(line, nullptr, false);
    if (!value.is_object() || !value.contains("time") || !value.contains("event"))
        return std::nullopt;
    LogEntry entry;
    for (const auto& [column, field] : value.items()) {
        if (!take(entry, column, field.is_string() ? field.get<std::string>() : field.dump()))
            return std::nullopt;
    }
    return entry;
}

} // namespace

const std::vector<LogNumber>& logNumbers()
{
    static const std::vector<LogNumber> numbers{{"present", &LogEntry::present},
        {"frame_bit_rate", &LogEntry::frameRate}, {"ts_bit_rate", &LogEntry::transportRate},
        {"delay_factor_ms", &LogEntry::delayFactorMs}, {"continuity_errors", &LogEntry::errors},
        {"packet_size", &LogEntry::packetSize}, {"packets_per_datagram", &LogEntry::packetsPerDatagram},
        {"iat_count", &LogEntry::arrivals}, {"iat_median_us", &LogEntry::medianUs},
        {"iat_p95_us", &LogEntry::percentile95Us}, {"iat_p99_us", &LogEntry::percentile99Us},
        {"iat_longest_us", &LogEntry::longestUs}};
    return numbers;
}

const char* nameOf(Event event)
{
    return events.at(static_cast<std::size_t>(event)).second;
}

std::string headerOf(LogFormat format)
{
    if (format == LogFormat::JsonLines)
        return {};
    std::string header;
    const auto add = [&](const char* name) { header += (header.empty() ? "" : ",") + std::string(name); };
    std::for_each(firstColumns.begin(), firstColumns.end(), add);
    for (const LogNumber& number : logNumbers())
        add(number.name);
    std::for_each(lastColumns.begin(), lastColumns.end(), add);
    return header;
}

std::string lineOf(const LogEntry& entry, LogFormat format)
{
    return format == LogFormat::Csv ? csvLine(entry) : jsonLine(entry);
}

LogReader::LogReader(const std::string& firstLine, const std::string& name)
{
    if (readJson(firstLine).has_value()) {
        m_format = LogFormat::JsonLines;
        return;
    }
    m_columns = fieldsOf(firstLine).value_or(std::vector<std::string>());
    for (const char* needed : {"time", "event"}) {
        if (std::find(m_columns.begin(), m_columns.end(), needed) == m_columns.end())
            throw Failure(ExitCode::LocalFile, name + " is no measurement log",
                "name a file that tessaryctl log has written");
    }
}

std::optional<LogEntry> LogReader::read(const std::string& line) const
{
    return m_format == LogFormat::JsonLines ? readJson(line) : readCsv(line);
}

std::optional<LogEntry> LogReader::readCsv(const std::string& line) const
{
    const auto fields = fieldsOf(line);
    if (!fields.has_value() || fields->size() != m_columns.size())
        return std::nullopt;
    LogEntry entry;
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        if (!take(entry, m_columns[i], (*fields)[i]))
            return std::nullopt;
    }
    return entry;
}

} // namespace tessary::ctl
