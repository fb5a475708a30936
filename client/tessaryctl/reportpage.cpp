#include "client/tessaryctl/reportpage.h"

#include "client/tessaryctl/reporttexts.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/timechart.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace tessary::ctl {

namespace {

using Event = LogEntry::Event;
using Kind = Span::Kind;

std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : printable(text)) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::string clock(double time)
{
    return localTime(wallTimeOf(time), "%Y-%m-%d %H:%M:%S");
}

std::string withZone(double time)
{
    return localTime(wallTimeOf(time), "%Y-%m-%d %H:%M:%S %z");
}

/// "8 h 0 min 12 s", "12.5 s".
std::string longText(double seconds)
{
    const long all = std::lround(seconds);
    if (all < 60)
        return fixed(seconds, seconds < 10 ? 1 : 0) + " s";
    const std::string minutes = std::to_string(all / 60 % 60) + " min " + std::to_string(all % 60) + " s";
    return all < 3600 ? minutes : std::to_string(all / 3600) + " h " + minutes;
}

std::string grouped(std::int64_t value)
{
    std::string digits = std::to_string(value);
    for (std::size_t at = digits.size(); at > 3;) {
        at -= 3;
        digits.insert(at, ",");
    }
    return digits;
}

/// "1 error", "2,000 errors".
std::string counted(std::int64_t count, const std::string& what)
{
    return grouped(count) + " " + what + (count == 1 ? "" : "s");
}

double secondsOfKind(const LogSummary& s, Kind kind)
{
    const auto found = s.seconds.find(kind);
    return found == s.seconds.end() ? 0 : found->second;
}

/// Down, so that 100 % is what it says.
std::string percentText(double share)
{
    if (share >= 1)
        return "100 %";
    return fixed(std::floor(share * 1e6) / 1e4, 4) + " %";
}

std::string tile(
    const std::string& value, const std::string& name, const std::string& more, const char* style)
{
    return "<div class=\"tile\"><span>" + name + "</span><b class=\"" + style + "\">" + value + "</b><span>"
        + more + "</span></div>\n";
}

std::string rangeText(const Range& range, std::string (*text)(double))
{
    return text(range.least) + " to " + text(range.most);
}

std::string milliseconds(double value)
{
    return microsecondsText(value * 1000);
}

std::string tiles(const LogSummary& s)
{
    const double absent = secondsOfKind(s, Kind::Absent);
    std::string html = "<div class=\"tiles\">\n";
    html += tile(s.availability.has_value() ? percentText(*s.availability) : "not known", "Availability",
        absent > 0 ? "no stream for " + longText(absent) : "the stream was never away",
        absent > 0 ? "bad" : "good");
    html += tile(grouped(s.errors), "Continuity errors",
        "in " + grouped(s.periodsWithErrors) + " of " + grouped(s.periods) + " seconds",
        s.errors > 0 ? "bad" : "good");
    html += tile(s.delayFactor.count == 0 ? "none" : milliseconds(s.delayFactor.most), "Largest delay factor",
        s.delayFactor.count == 0 ? "" : "mean " + fixed(s.delayFactor.mean, 1) + " ms",
        s.limits.count("max-delay-factor") > 0
                && s.delayFactor.most > std::stod(s.limits.at("max-delay-factor"))
            ? "bad"
            : "");
    html +=
        tile(s.longest.count == 0 ? "none" : microsecondsText(s.longest.most), "Longest inter-arrival time",
            s.median.count == 0 ? "" : "median " + microsecondsText(s.median.mean), "");
    html += tile(s.frameRate.count == 0 ? "none" : bitRateText(s.frameRate.mean), "Bit rate, whole frames",
        s.frameRate.count == 0 ? "" : rangeText(s.frameRate, bitRateText), "");
    html +=
        tile(s.transportRate.count == 0 ? "not known" : bitRateText(s.transportRate.mean), "Transport stream",
            s.transportRate.count == 0 ? "the log was not told the server"
                                       : rangeText(s.transportRate, bitRateText),
            "");
    if (!s.worstMinutes.empty()) {
        const Minute& worst = s.worstMinutes.front();
        html += tile(localTime(wallTimeOf(worst.from), "%H:%M"), "Worst minute",
            counted(worst.errors, "error") + (worst.lost > 0 ? ", " + longText(worst.lost) + " away" : ""),
            "bad");
    } else {
        html += tile("none", "Worst minute", "no minute had a fault", "good");
    }
    html += s.limits.empty()
        ? tile("none set", "Limits", "options of tessaryctl log", "")
        : tile(grouped(static_cast<std::int64_t>(s.crossings.size())) + " ×", "Limits crossed",
            "of " + std::to_string(s.limits.size()) + " that were set", s.crossings.empty() ? "good" : "bad");
    return html + "</div>\n";
}

std::string verdict(const LogSummary& s)
{
    std::vector<std::string> faults;
    const double absent = secondsOfKind(s, Kind::Absent);
    if (absent > 0)
        faults.push_back("the stream was away for " + longText(absent));
    if (s.errors > 0)
        faults.push_back(counted(s.errors, "continuity error"));
    if (!s.crossings.empty())
        faults.push_back("limits crossed "
            + (s.crossings.size() == 1 ? "once" : std::to_string(s.crossings.size()) + " times"));
    if (faults.empty())
        return s.periods == 0 ? "<p class=\"verdict bad\">No second of a stream was measured.</p>\n"
                              : "<p class=\"verdict\">No fault: the stream was there all the time, without "
                                "continuity errors"
                + std::string(s.limits.empty() ? "" : ", and within all limits") + ".</p>\n";
    std::string text = faults.front();
    for (std::size_t i = 1; i < faults.size(); ++i)
        text += (i + 1 == faults.size() ? " and " : ", ") + faults[i];
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    return "<p class=\"verdict bad\">" + text + ".</p>\n";
}

std::string fact(const std::string& name, const std::string& value)
{
    return value.empty() ? "" : "<dt>" + name + "</dt><dd>" + escaped(value) + "</dd>\n";
}

std::string limitsText(const LogSummary& s)
{
    std::string text;
    const auto add = [&](const char* name, const std::string& words) {
        if (s.limits.count(name) > 0)
            text += (text.empty() ? "" : "; ") + words;
    };
    const auto value = [&](const char* name) { return s.limits.count(name) > 0 ? s.limits.at(name) : ""; };
    add("max-delay-factor", "delay factor at most " + value("max-delay-factor") + " ms");
    add("max-errors",
        value("max-errors") == "0" ? "no continuity errors"
                                   : "at most "
                + counted(std::atoll(value("max-errors").c_str()), "continuity error") + " a second");
    add("min-rate", "bit rate of whole frames at least " + bitRateText(std::atof(value("min-rate").c_str())));
    add("on-loss", "neither stream nor link lost");
    return text;
}

std::string facts(const MeasurementRecord& log, const LogSummary& s, const std::string& name)
{
    std::string servers;
    for (const std::string& server : s.servers)
        servers += (servers.empty() ? "" : ", ") + server;
    std::string html = "<dl class=\"facts\">\n";
    html += fact("Stream", servers.empty() ? "not told to the log" : servers);
    html += fact("From", withZone(s.from));
    html += fact(
        "To", withZone(s.to) + (s.ended ? "" : "; the log has no end row: it was cut off, or still runs"));
    html += fact("Duration", longText(s.to - s.from));
    for (const Kind kind : {Kind::NoLink, Kind::NoAnswer, Kind::NotLogged}) {
        if (secondsOfKind(s, kind) > 0)
            html += fact("Not measured",
                longText(secondsOfKind(s, kind)) + ": " + nameOf(kind) + "; not part of the availability");
    }
    html += fact("Limits", limitsText(s));
    html += fact("Log",
        name + ", " + grouped(static_cast<std::int64_t>(log.entries.size())) + " rows"
            + (log.damagedLines > 0 ? "; " + counted(log.damagedLines, "damaged line") + " left out" : ""));
    return html + "</dl>\n";
}

std::vector<TimePoint> pointsOf(
    const MeasurementRecord& log, std::optional<std::int64_t> LogEntry::*value, double factor = 1)
{
    std::vector<TimePoint> points;
    for (const LogEntry& entry : log.entries) {
        if (entry.event == Event::Period && (entry.*value).has_value())
            points.push_back({secondsOf(entry.time), factor * static_cast<double>(*(entry.*value))});
    }
    return points;
}

std::string key(const char* colour, const std::string& text)
{
    return "<i class=\"key\" style=\"background:var(--" + std::string(colour) + ")\"></i>" + text;
}

std::string figure(
    const std::string& title, const std::string& note, const std::string& svg, const char* style)
{
    return "<figure class=\"" + std::string(style) + "\"><figcaption>" + title + "<span>" + note
        + "</span></figcaption>\n" + svg + "</figure>\n";
}

std::optional<double> limitOf(const LogSummary& s, const char* name)
{
    const auto found = s.limits.find(name);
    return found == s.limits.end() ? std::nullopt : std::optional(std::atof(found->second.c_str()));
}

std::string limitKey(const std::optional<double>& limit, const std::string& text)
{
    return limit.has_value() ? "dashed: the limit, " + text : "";
}

std::string charts(const MeasurementRecord& log, const LogSummary& s)
{
    const TimeAxis axis{s.from, std::max(s.to, s.from + 1), s.spans};
    std::string html = figure("Presence",
        key("good", "stream present") + key("bad", "no stream") + key("warn", "no Ethernet link")
            + key("grey", "instrument did not answer") + key("line", "not logged"),
        presenceStrip(axis), "strip");
    const auto rateLimit = limitOf(s, "min-rate");
    html += figure("Bit rate",
        key("blue", "whole frames") + (s.transportRate.count > 0 ? key("teal", "transport stream") : "") + " "
            + limitKey(rateLimit, bitRateText(rateLimit.value_or(0))),
        svgOf({"bit rate over time",
                  {{"blue", pointsOf(log, &LogEntry::frameRate)},
                      {"teal", pointsOf(log, &LogEntry::transportRate)}},
                  false, false, rateLimit, bitRateText},
            axis),
        "plot");
    const double column = secondsPerColumn(axis);
    html += figure("Continuity errors",
        column < 2 ? "a second" : "sum of each " + fixed(column, 0) + " s; all in all " + grouped(s.errors),
        svgOf(
            {"continuity errors over time", {{"bars", pointsOf(log, &LogEntry::errors)}}, true, false,
                std::nullopt,
                [](double value) { return fixed(value, value < 10 && value != std::floor(value) ? 1 : 0); }},
            axis),
        "plot");
    const auto delayLimit = limitOf(s, "max-delay-factor");
    html += figure("Delay factor", limitKey(delayLimit, fixed(delayLimit.value_or(0), 0) + " ms"),
        svgOf({"delay factor over time", {{"violet", pointsOf(log, &LogEntry::delayFactorMs)}}, false,
                  s.delayFactor.most > 50 * std::max(s.delayFactor.mean, 1.0), delayLimit, milliseconds},
            axis),
        "plot");
    html += figure("Inter-arrival times",
        key("grey", "longest") + key("violet", "99 %") + key("teal", "95 %") + key("blue", "median")
            + " &nbsp;of the frames of each second, logarithmic",
        svgOf({"inter-arrival times over time",
                  {{"faint", pointsOf(log, &LogEntry::longestUs)},
                      {"violet", pointsOf(log, &LogEntry::percentile99Us)},
                      {"teal", pointsOf(log, &LogEntry::percentile95Us)},
                      {"blue", pointsOf(log, &LogEntry::medianUs)}},
                  false, true, std::nullopt, microsecondsText},
            axis),
        "plot");
    return html;
}

using Cells = std::vector<std::string>;

/// The first row is the heading. Columns from `numbers` on are numbers.
std::string table(const std::vector<Cells>& rows, std::size_t numbers)
{
    std::string html = "<div class=\"wide\"><table>\n";
    for (std::size_t row = 0; row < rows.size(); ++row) {
        const std::string tag = row == 0 ? "th" : "td";
        html += "<tr>";
        for (std::size_t i = 0; i < rows[row].size(); ++i)
            html.append("<")
                .append(tag)
                .append(i >= numbers ? " class=\"n\">" : ">")
                .append(escaped(rows[row][i]))
                .append("</")
                .append(tag)
                .append(">");
        html += "</tr>\n";
    }
    return html + "</table></div>\n";
}

/// A page of tens of thousands of rows would help nobody: the rest is in the log.
constexpr std::size_t mostRows = 100;

std::string restNote(std::size_t count)
{
    return count > mostRows
        ? "<p class=\"soft\">And " + std::to_string(count - mostRows) + " more; the log has them all.</p>\n"
        : "";
}

std::string worstText(const Crossing& crossing)
{
    if (crossing.limit == "delay-factor")
        return fixed(crossing.worst, 0) + " ms";
    if (crossing.limit == "rate")
        return bitRateText(crossing.worst);
    return crossing.limit == "errors" ? fixed(crossing.worst, 0) + " in a second"
                                      : longText(crossing.worst) + " away";
}

std::string crossingsTable(const LogSummary& s)
{
    if (s.crossings.empty())
        return "";
    std::vector<Cells> rows{{"From", "To", "Limit", "Rows", "Worst value"}};
    for (std::size_t i = 0; i < std::min(s.crossings.size(), mostRows); ++i) {
        const Crossing& c = s.crossings[i];
        rows.push_back({clock(c.from), clock(c.to), c.limit, std::to_string(c.rows), worstText(c)});
    }
    return "<h2>Limits crossed</h2>\n<p class=\"soft\">Rows within a minute of each other are one "
           "crossing.</p>\n"
        + table(rows, 3) + restNote(s.crossings.size());
}

std::string minutesTable(const LogSummary& s)
{
    if (s.worstMinutes.empty())
        return "";
    std::vector<Cells> rows{{"Minute", "Without stream", "Continuity errors", "Delay factor, largest",
        "Inter-arrival time, longest"}};
    for (const Minute& m : s.worstMinutes)
        rows.push_back({localTime(wallTimeOf(m.from), "%Y-%m-%d %H:%M"), m.lost > 0 ? longText(m.lost) : "",
            grouped(m.errors), m.delayFactorMs > 0 ? milliseconds(static_cast<double>(m.delayFactorMs)) : "",
            m.longestUs > 0 ? microsecondsText(static_cast<double>(m.longestUs)) : ""});
    return "<h2>Worst minutes</h2>\n<p class=\"soft\">By time without stream, then by errors, then by delay "
           "factor.</p>\n"
        + table(rows, 1);
}

/// The end of a gap and, of its note, what is not said by that.
std::pair<std::string, std::string> gapTexts(const std::string& note)
{
    const std::size_t end = std::min(note.find("; "), note.size());
    const std::string rest = end < note.size() ? note.substr(end + 2) : "";
    const std::pair<Event, const char*> ends[] = {{Event::Absent, "stream is back"},
        {Event::NoLink, "Ethernet link is back"}, {Event::NoAnswer, "instrument answers again"}};
    for (const auto& [event, text] : ends) {
        if (note.substr(0, end) == nameOf(event))
            return {text, rest};
    }
    return {"end of the gap", note};
}

std::string happeningText(const LogEntry& entry)
{
    switch (entry.event) {
    case Event::Start:
        return "log began";
    case Event::Resumed:
        return "log resumed";
    case Event::Absent:
        return "no stream arrives";
    case Event::NoLink:
        return "Ethernet link lost";
    case Event::NoAnswer:
        return "instrument does not answer";
    case Event::Gap:
        return gapTexts(entry.note).first;
    case Event::Changed:
        return "another stream";
    case Event::Missed:
        return "periods may be missing";
    case Event::End:
        return "log ended";
    case Event::Period:
        break;
    }
    return "";
}

std::string happeningsTable(const LogSummary& s)
{
    std::vector<Cells> rows{{"Time", "What", "Note", "Length"}};
    std::size_t count = 0;
    Event before = Event::Start;
    for (const LogEntry& entry : s.happenings) {
        const bool repeated =
            entry.event == before && entry.event != Event::Changed && entry.event != Event::Missed;
        before = entry.event;
        if (repeated && count > 0)
            continue;
        ++count;
        const bool over = entry.event == Event::Gap || entry.event == Event::Resumed;
        if (count <= mostRows)
            rows.push_back({clock(secondsOf(entry.time)), happeningText(entry),
                entry.event == Event::Gap ? gapTexts(entry.note).second : entry.note,
                over && entry.seconds.has_value() ? longText(*entry.seconds) : ""});
    }
    return "<h2>What happened</h2>\n" + table(rows, 3) + restNote(count);
}

} // namespace

std::string reportPage(const MeasurementRecord& log, const LogSummary& summary, const std::string& name)
{
    std::string html =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">\n<title>Stream "
        "reception, "
        + escaped(clock(summary.from)) + "</title>\n<style>" + reportStyleSheet
        + "</style>\n</head>\n<body>\n<main>\n";
    html += "<h1>Reception of a transport stream</h1>\n";
    html += facts(log, summary, name) + verdict(summary) + tiles(summary);
    html += "<h2>Over time</h2>\n" + charts(log, summary);
    html += minutesTable(summary) + crossingsTable(summary) + happeningsTable(summary) + reportExplanation;
    return html + "</main>\n</body>\n</html>\n";
}

} // namespace tessary::ctl
