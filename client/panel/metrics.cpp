#include "client/panel/metrics.h"

#include <optional>
#include <sstream>

namespace tessary::panel {

namespace {

/// Writes families of metrics one after the other.
class Page
{
public:
    Page() { m_text.precision(12); }

    void family(const std::string& name, const char* type, const char* unit, const char* help)
    {
        m_text << "# TYPE " << name << ' ' << type << '\n';
        if (*unit != '\0')
            m_text << "# UNIT " << name << ' ' << unit << '\n';
        m_text << "# HELP " << name << ' ' << help << '\n';
    }
    template <typename Number> void sample(const std::string& name, const std::string& labels, Number value)
    {
        m_text << name << (labels.empty() ? "" : "{" + labels + "}") << ' ' << value << '\n';
    }
    /// A gauge; without value none.
    void gauge(
        const std::string& name, const char* unit, const char* help, const std::optional<double>& value)
    {
        if (!value.has_value())
            return;
        family(name, "gauge", unit, help);
        sample(name, "", *value);
    }
    std::string end()
    {
        m_text << "# EOF\n";
        return m_text.str();
    }

private:
    std::ostringstream m_text;
};

std::string escaped(const std::string& value)
{
    std::string result;
    for (const char c : value) {
        if (c == '\\' || c == '"')
            result += '\\';
        result += c == '\n' ? std::string("\\n") : std::string(1, c);
    }
    return result;
}

std::string label(const char* name, const std::string& value)
{
    return std::string(name) + "=\"" + escaped(value) + "\"";
}

/// Nothing for null, and for what is not there.
std::optional<double> number(const Json& object, const char* key, double factor = 1)
{
    if (!object.is_object() || !object.contains(key))
        return std::nullopt;
    const Json& value = object.at(key);
    if (value.is_boolean())
        return value.get<bool>() ? 1 : 0;
    return value.is_number() ? std::optional(value.get<double>() * factor) : std::nullopt;
}

Json part(const Json& object, const char* key)
{
    return object.is_object() && object.contains(key) ? object.at(key) : Json();
}

std::string text(const Json& object, const char* key)
{
    const Json value = part(object, key);
    return value.is_string() ? value.get<std::string>() : "";
}

void addReception(Page& page, const Json& measurement)
{
    const bool measuring = number(measurement, "measuring").value_or(0) > 0;
    page.gauge("tessary_measuring", "", "1 while the reception is measured", measuring ? 1 : 0);
    if (!measuring)
        return;
    const bool present = text(measurement, "state") != "absent";
    page.gauge("tessary_stream_present", "", "1 while the stream arrives", present ? 1 : 0);
    const Json figures = part(measurement, "figures");
    if (text(measurement, "state") == "valid") {
        page.gauge("tessary_stream_bits_per_second", "",
            "Bit rate of whole Ethernet frames in the last period", number(figures, "bit_rate"));
        page.gauge("tessary_stream_delay_factor_seconds", "seconds", "Delay factor of the last period",
            number(figures, "delay_factor_ms", 1e-3));
    }
    const auto errors = number(part(measurement, "since_start"), "continuity_errors");
    if (errors.has_value()) {
        page.family("tessary_stream_continuity_errors", "counter", "",
            "Continuity-counter errors since the measurement began");
        page.sample("tessary_stream_continuity_errors_total", "", *errors);
    }
    const Json arrival = part(measurement, "inter_arrival");
    if (!arrival.is_object())
        return;
    const std::string name = "tessary_stream_inter_arrival_seconds";
    page.family(name, "gauge", "seconds", "Time between two frames, of those of the last period");
    for (const auto& [quantile, key] : {std::pair("0.5", "median_us"), std::pair("0.95", "percentile_95_us"),
             std::pair("0.99", "percentile_99_us"), std::pair("1", "longest_us")})
        page.sample(name, label("quantile", quantile), number(arrival, key, 1e-6).value_or(0));
}

void addInstrument(Page& page, const Json& state)
{
    const Json line = part(state, "line");
    const Json instrument = part(state, "instrument");
    page.gauge("tessary_line_open", "", "1 while the serial port is open", number(line, "open"));
    page.gauge("tessary_instrument_up", "", "1 while the instrument answers", number(line, "answers"));
    page.family("tessary_instrument", "info", "", "The instrument's software and stream server");
    page.sample("tessary_instrument_info",
        label("software", text(instrument, "software")) + "," + label("server", text(instrument, "server")),
        1);
    page.gauge("tessary_ethernet_link_up", "", "1 while the instrument's Ethernet has a link",
        number(part(instrument, "interface"), "link_detected"));
    page.gauge("tessary_player_running", "", "1 while a source is running",
        text(instrument, "player") == "running" ? 1 : 0);
    page.family("tessary_instrument_starts", "counter", "", "Starts of the daemon that were noticed");
    page.sample("tessary_instrument_starts_total", "", number(instrument, "starts_seen").value_or(0));
    page.gauge("tessary_recording_bytes", "bytes", "Size of the recording on the memory card",
        number(part(state, "recorder"), "bytes"));
    page.gauge("tessary_recording_running", "", "1 while it is being made",
        number(part(state, "recorder"), "recording"));
}

} // namespace

void Metrics::commandEnded(const std::string& command, int status, double seconds)
{
    const std::lock_guard lock(m_mutex);
    Command& known = m_commands[{command, status}];
    ++known.count;
    known.seconds += seconds;
}

void Metrics::lineFailed(ctl::ExitCode code)
{
    const std::lock_guard lock(m_mutex);
    ++m_failures[ctl::wordOf(code)];
}

std::string Metrics::text(const Json& state) const
{
    Page page;
    addInstrument(page, state);
    addReception(page, part(state, "measurement"));
    const std::lock_guard lock(m_mutex);
    page.family("tessary_line_failures", "counter", "", "Questions between commands that were not answered");
    for (const auto& [kind, count] : m_failures)
        page.sample("tessary_line_failures_total", label("kind", kind), count);
    page.family("tessary_command_duration_seconds", "summary", "seconds", "Command lines carried out");
    for (const auto& [key, command] : m_commands) {
        const std::string labels =
            label("command", key.first) + "," + label("status", std::to_string(key.second));
        page.sample("tessary_command_duration_seconds_count", labels, command.count);
        page.sample("tessary_command_duration_seconds_sum", labels, command.seconds);
    }
    return page.end();
}

} // namespace tessary::panel
