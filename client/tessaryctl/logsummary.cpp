#include "client/tessaryctl/logsummary.h"

#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <tuple>

namespace tessary::ctl {

namespace {

using Event = LogEntry::Event;
using Kind = Span::Kind;

/// Rows that cross a limit within a minute of each other are one crossing.
constexpr double mostBetweenCrossings = 60; // s

std::optional<Kind> kindOf(Event event)
{
    switch (event) {
    case Event::Absent:
        return Kind::Absent;
    case Event::NoLink:
        return Kind::NoLink;
    case Event::NoAnswer:
        return Kind::NoAnswer;
    default:
        return std::nullopt;
    }
}

/// The stretches without figures, in their order, none over another.
class SpanFinder
{
public:
    void add(const LogEntry& entry)
    {
        const double time = secondsOf(entry.time);
        const auto kind = kindOf(entry.event);
        if (entry.event == Event::Start || entry.event == Event::Resumed) {
            close(m_last);
            if (m_any)
                push({Kind::NotLogged, m_last, time});
        } else if (kind.has_value() && (!m_open.has_value() || m_open->kind != *kind)) {
            close(time);
            m_open = Span{*kind, time - entry.seconds.value_or(0), time};
        } else if (entry.event == Event::Gap || entry.event == Event::Period || entry.event == Event::End) {
            close(time);
        }
        m_last = time;
        m_any = true;
    }

    std::vector<Span> take()
    {
        close(m_last);
        return std::move(m_spans);
    }

private:
    void close(double time)
    {
        if (!m_open.has_value())
            return;
        m_open->to = time;
        push(*m_open);
        m_open.reset();
    }

    void push(Span span)
    {
        if (!m_spans.empty())
            span.from = std::max(span.from, m_spans.back().to);
        if (span.to > span.from)
            m_spans.push_back(span);
    }

    std::vector<Span> m_spans;
    std::optional<Span> m_open;
    double m_last = 0;
    bool m_any = false;
};

void add(Range& range, const std::optional<std::int64_t>& value)
{
    if (!value.has_value())
        return;
    const auto number = static_cast<double>(*value);
    range.least = range.count == 0 ? number : std::min(range.least, number);
    range.most = range.count == 0 ? number : std::max(range.most, number);
    range.mean += (number - range.mean) / static_cast<double>(++range.count);
}

class Minutes
{
public:
    void add(const LogEntry& entry)
    {
        Minute& minute = at(secondsOf(entry.time));
        minute.errors += entry.errors.value_or(0);
        minute.delayFactorMs = std::max(minute.delayFactorMs, entry.delayFactorMs.value_or(0));
        minute.longestUs = std::max(minute.longestUs, entry.longestUs.value_or(0));
        if (!entry.crossed.empty())
            m_crossed.insert_or_assign(minute.from, true);
    }

    void add(const Span& span)
    {
        if (span.kind != Kind::Absent)
            return;
        for (double from = span.from; from < span.to;) {
            Minute& minute = at(from);
            const double end = std::min(span.to, minute.from + length);
            minute.lost += end - from;
            from = end;
        }
    }

    std::vector<Minute> worst() const
    {
        constexpr std::size_t most = 10;
        std::vector<Minute> found;
        for (const auto& [from, minute] : m_minutes) {
            if (minute.lost > 0 || minute.errors > 0 || m_crossed.count(from) > 0)
                found.push_back(minute);
        }
        std::stable_sort(found.begin(), found.end(), [](const Minute& a, const Minute& b) {
            return std::tie(a.lost, a.errors, a.delayFactorMs) > std::tie(b.lost, b.errors, b.delayFactorMs);
        });
        found.resize(std::min(found.size(), most));
        return found;
    }

private:
    static constexpr double length = 60;

    Minute& at(double time)
    {
        const double from = std::floor(time / length) * length;
        Minute& minute = m_minutes[from];
        minute.from = from;
        return minute;
    }

    std::map<double, Minute> m_minutes;
    std::map<double, bool> m_crossed;
};

double valueFor(const std::string& limit, const LogEntry& entry)
{
    if (limit == "delay-factor")
        return static_cast<double>(entry.delayFactorMs.value_or(0));
    if (limit == "rate")
        return static_cast<double>(entry.frameRate.value_or(0));
    if (limit == "errors")
        return static_cast<double>(entry.errors.value_or(0));
    return entry.seconds.value_or(0);
}

class Crossings
{
public:
    void add(const LogEntry& entry)
    {
        const auto loss = m_open.find("loss");
        const bool ofLoss = entry.note.rfind(nameOf(Event::NoAnswer), 0) != 0; // that is none
        if (entry.event == Event::Gap && ofLoss && loss != m_open.end()) {
            loss->second.to = secondsOf(entry.time);
            loss->second.worst = std::max(loss->second.worst, entry.seconds.value_or(0));
        }
        std::istringstream words(entry.crossed);
        for (std::string limit; words >> limit;)
            extend(limit, entry);
    }

    std::vector<Crossing> take()
    {
        for (const auto& [limit, crossing] : m_open)
            m_all.push_back(crossing);
        std::stable_sort(
            m_all.begin(), m_all.end(), [](const Crossing& a, const Crossing& b) { return a.from < b.from; });
        return std::move(m_all);
    }

private:
    void extend(const std::string& limit, const LogEntry& entry)
    {
        const double time = secondsOf(entry.time);
        const double value = valueFor(limit, entry);
        const auto [at, isNew] = m_open.try_emplace(limit, Crossing{limit, time, time, 0, value});
        Crossing& crossing = at->second;
        if (time - crossing.to > mostBetweenCrossings) {
            m_all.push_back(crossing);
            crossing = {limit, time, time, 0, value};
        }
        crossing.to = time;
        ++crossing.rows;
        crossing.worst = limit == "rate" ? std::min(crossing.worst, value) : std::max(crossing.worst, value);
    }

    std::map<std::string, Crossing> m_open;
    std::vector<Crossing> m_all;
};

std::map<std::string, std::string> limitsIn(const std::string& note)
{
    std::map<std::string, std::string> limits;
    std::istringstream words(note);
    for (std::string word; words >> word;) {
        const std::size_t sign = word.find('=');
        limits[word.substr(0, sign)] = sign == std::string::npos ? "" : word.substr(sign + 1);
    }
    return limits;
}

void addPeriod(LogSummary& summary, const LogEntry& entry)
{
    ++summary.periods;
    summary.errors += entry.errors.value_or(0);
    summary.periodsWithErrors += entry.errors.value_or(0) > 0 ? 1 : 0;
    add(summary.frameRate, entry.frameRate);
    add(summary.transportRate, entry.transportRate);
    add(summary.delayFactor, entry.delayFactorMs);
    add(summary.median, entry.medianUs);
    add(summary.percentile99, entry.percentile99Us);
    add(summary.longest, entry.longestUs);
}

void addHappening(LogSummary& summary, const LogEntry& entry)
{
    if (entry.event == Event::Start || entry.event == Event::Resumed)
        summary.limits = limitsIn(entry.note);
    summary.missed += entry.event == Event::Missed ? 1 : 0;
    summary.changes += entry.event == Event::Changed ? 1 : 0;
    summary.happenings.push_back(entry);
}

/// Time with the stream there, and its share of the time in which the instrument could tell.
void addAvailability(LogSummary& summary)
{
    double without = 0;
    for (const auto& [kind, seconds] : summary.seconds)
        without += seconds;
    summary.present = summary.to - summary.from - without;
    const double known = summary.present + summary.seconds[Kind::Absent];
    if (known > 0)
        summary.availability = summary.present / known;
}

std::string limitUnit(const std::string& limit)
{
    return limit == "delay-factor" ? "ms" : limit == "rate" ? "bit/s" : limit == "loss" ? "s" : "errors";
}

} // namespace

const char* nameOf(Kind kind)
{
    switch (kind) {
    case Kind::Absent:
        return "no stream";
    case Kind::NoLink:
        return "no link";
    case Kind::NoAnswer:
        return "no answer of the instrument";
    case Kind::NotLogged:
        break;
    }
    return "not logged";
}

MeasurementRecord readLog(const std::string& path)
{
    std::ifstream file(path);
    std::string line;
    if (!file.is_open() || !std::getline(file, line))
        throw Failure(ExitCode::LocalFile,
            "cannot read " + path
                + (file.is_open() ? ": it is empty" : ": " + std::string(std::strerror(errno))),
            "name a file that tessaryctl log has written");
    const LogReader reader(line, path);
    MeasurementRecord log;
    bool first = true;
    do {
        auto entry = reader.read(line);
        const bool inOrder =
            entry.has_value() && (log.entries.empty() || entry->time >= log.entries.back().time);
        if (inOrder)
            log.entries.push_back(*std::move(entry));
        else if (!line.empty() && !(first && reader.format() == LogFormat::Csv))
            ++log.damagedLines;
        first = false;
    } while (std::getline(file, line));
    if (log.entries.empty())
        throw Failure(ExitCode::LocalFile, path + " has no rows", "let tessaryctl log run for a while");
    return log;
}

LogSummary summaryOf(const MeasurementRecord& log)
{
    LogSummary summary;
    summary.from = secondsOf(log.entries.front().time);
    summary.to = secondsOf(log.entries.back().time);
    summary.ended = log.entries.back().event == Event::End;
    SpanFinder spans;
    Minutes minutes;
    Crossings crossings;
    for (const LogEntry& entry : log.entries) {
        spans.add(entry);
        minutes.add(entry);
        crossings.add(entry);
        if (!entry.server.empty()
            && std::find(summary.servers.begin(), summary.servers.end(), entry.server)
                == summary.servers.end())
            summary.servers.push_back(entry.server);
        if (entry.event == Event::Period)
            addPeriod(summary, entry);
        else
            addHappening(summary, entry);
    }
    summary.spans = spans.take();
    for (const Span& span : summary.spans) {
        summary.seconds[span.kind] += span.seconds();
        minutes.add(span);
    }
    summary.worstMinutes = minutes.worst();
    summary.crossings = crossings.take();
    addAvailability(summary);
    return summary;
}

Json jsonOf(const LogSummary& s)
{
    const auto time = [](double seconds) { return isoTime(wallTimeOf(seconds)); };
    const auto range = [](const Range& r) {
        return r.count == 0 ? Json() : Json{{"least", r.least}, {"mean", r.mean}, {"most", r.most}};
    };
    const auto lost = [&](Kind kind) {
        const auto found = s.seconds.find(kind);
        return found == s.seconds.end() ? 0.0 : found->second;
    };
    Json minutes = Json::array();
    for (const Minute& minute : s.worstMinutes)
        minutes.push_back({{"from", time(minute.from)}, {"seconds_without_stream", minute.lost},
            {"continuity_errors", minute.errors}, {"delay_factor_ms", minute.delayFactorMs},
            {"iat_longest_us", minute.longestUs}});
    Json crossings = Json::array();
    for (const Crossing& crossing : s.crossings)
        crossings.push_back(
            {{"limit", crossing.limit}, {"from", time(crossing.from)}, {"to", time(crossing.to)},
                {"rows", crossing.rows}, {"worst", crossing.worst}, {"unit", limitUnit(crossing.limit)}});
    return {{"from", time(s.from)}, {"to", time(s.to)}, {"seconds", s.to - s.from}, {"ended", s.ended},
        {"servers", s.servers}, {"availability", s.availability.has_value() ? Json(*s.availability) : Json()},
        {"seconds_present", s.present}, {"seconds_without_stream", lost(Kind::Absent)},
        {"seconds_without_link", lost(Kind::NoLink)}, {"seconds_without_answer", lost(Kind::NoAnswer)},
        {"seconds_not_logged", lost(Kind::NotLogged)}, {"periods", s.periods},
        {"periods_with_errors", s.periodsWithErrors}, {"continuity_errors", s.errors},
        {"rows_missed", s.missed}, {"changes", s.changes}, {"frame_bit_rate", range(s.frameRate)},
        {"ts_bit_rate", range(s.transportRate)}, {"delay_factor_ms", range(s.delayFactor)},
        {"iat_median_us", range(s.median)}, {"iat_p99_us", range(s.percentile99)},
        {"iat_longest_us", range(s.longest)}, {"limits", s.limits}, {"crossings", crossings},
        {"worst_minutes", minutes}};
}

std::string textOf(const LogSummary& s)
{
    const auto time = [](double seconds) { return localTime(wallTimeOf(seconds), "%Y-%m-%d %H:%M:%S"); };
    std::vector<std::vector<std::string>> rows{{"from", time(s.from)},
        {"to", time(s.to) + "   (" + durationText(s.to - s.from) + (s.ended ? ")" : ", without end row)")},
        {"availability",
            s.availability.has_value() ? fixed(*s.availability * 100, 4) + " %" : std::string("not known")}};
    for (const auto& [kind, seconds] : s.seconds) {
        if (seconds > 0)
            rows.push_back({nameOf(kind), durationText(seconds)});
    }
    rows.push_back({"continuity errors",
        std::to_string(s.errors) + " in " + std::to_string(s.periodsWithErrors) + " of "
            + std::to_string(s.periods) + " periods"});
    if (s.frameRate.count > 0)
        rows.push_back({"bit rate",
            bitRateText(s.frameRate.least) + " to " + bitRateText(s.frameRate.most) + ", mean "
                + bitRateText(s.frameRate.mean)});
    if (s.delayFactor.count > 0)
        rows.push_back({"delay factor", "up to " + fixed(s.delayFactor.most, 0) + " ms"});
    if (s.longest.count > 0)
        rows.push_back({"inter-arrival time", "up to " + microsecondsText(s.longest.most)});
    if (!s.worstMinutes.empty()) {
        const Minute& worst = s.worstMinutes.front();
        rows.push_back({"worst minute",
            localTime(wallTimeOf(worst.from), "%Y-%m-%d %H:%M") + ": " + std::to_string(worst.errors)
                + " errors, " + fixed(worst.lost, 0) + " s without stream"});
    }
    if (!s.limits.empty())
        rows.push_back({"limits crossed", std::to_string(s.crossings.size()) + " times"});
    return tableOf(rows);
}

} // namespace tessary::ctl
