#include "client/tessaryctl/measurementlog.h"

#include "client/serverspec.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tessary::ctl {

using namespace client;

namespace {

using Event = LogEntry::Event;
using State = PeriodWatch::State;
using Seconds = std::chrono::duration<double>;

/// While there is nothing to measure, a row says so this often, so that the log tells for how long.
constexpr double repetition = 60; // s

/// So many periods in a row have to have another bit rate for the stream to be another one.
constexpr std::size_t periodsOfChange = 3;

Event eventOf(MeasurementLog::Loss loss)
{
    switch (loss) {
    case MeasurementLog::Loss::Stream:
        return Event::Absent;
    case MeasurementLog::Loss::Link:
        return Event::NoLink;
    case MeasurementLog::Loss::Answer:
        break;
    }
    return Event::NoAnswer;
}

bool sameFigures(const Measurement& a, const Measurement& b)
{
    return a.bitRate == b.bitRate && a.delayFactorMs == b.delayFactorMs
        && a.continuityErrors == b.continuityErrors;
}

bool isRtp(const StreamServer& server)
{
    using Protocol = StreamServer::Protocol;
    return server.protocol == Protocol::Rtp || server.protocol == Protocol::RtpT2mi;
}

std::string datagramText(const LogEntry& entry)
{
    return std::to_string(entry.packetsPerDatagram.value_or(0)) + " × "
        + std::to_string(entry.packetSize.value_or(0)) + " bytes";
}

std::string rateText(std::int64_t rate)
{
    return bitRateText(static_cast<double>(rate));
}

} // namespace

std::string textOf(const LogLimits& limits)
{
    std::string text;
    const auto add = [&](const std::string& word) { text += (text.empty() ? "" : " ") + word; };
    if (limits.delayFactorMs.has_value())
        add("max-delay-factor=" + std::to_string(*limits.delayFactorMs));
    if (limits.errors.has_value())
        add("max-errors=" + std::to_string(*limits.errors));
    if (limits.frameRate.has_value())
        add("min-rate=" + std::to_string(*limits.frameRate));
    if (limits.loss)
        add("on-loss");
    return text;
}

MeasurementLog::Moment MeasurementLog::Moment::now()
{
    return {PeriodWatch::Clock::now(), std::chrono::system_clock::now()};
}

MeasurementLog::MeasurementLog(LogSettings settings, Sink sink)
    : m_settings(std::move(settings))
    , m_sink(std::move(sink))
{
}

void MeasurementLog::start(Moment now, const std::optional<LogEntry>& former)
{
    LogEntry entry = entryAt(now.wall, former.has_value() ? Event::Resumed : Event::Start);
    if (former.has_value())
        entry.seconds = Seconds(now.wall - former->time).count();
    entry.note = textOf(m_settings.limits);
    write(std::move(entry));
}

LogEntry MeasurementLog::entryAt(WallTime wall, Event event) const
{
    LogEntry entry;
    entry.time = wall;
    entry.event = event;
    if (m_settings.server.has_value())
        entry.server = serverUrl(*m_settings.server);
    return entry;
}

/// While the figures settle after a silence, only the errors are the stream's own.
LogEntry MeasurementLog::periodEntry(const Measurement& figures, WallTime wall) const
{
    LogEntry entry = entryAt(wall, Event::Period);
    entry.present = 1;
    entry.errors = figures.continuityErrors;
    if (m_watch.state() != State::Valid) {
        entry.note = "first after a silence";
        return entry;
    }
    entry.frameRate = figures.bitRate;
    entry.delayFactorMs = figures.delayFactorMs;
    entry.packetSize = figures.packetSize;
    entry.packetsPerDatagram = figures.packetsPerDatagram;
    if (m_settings.server.has_value())
        entry.transportRate = transportRate(figures, isRtp(*m_settings.server));
    return entry;
}

bool MeasurementLog::add(const PeriodWatch::Reading& reading, WallTime wall)
{
    flush();
    const Moment now{reading.answered, wall};
    if (m_gap.has_value() && m_gap->loss != Loss::Stream)
        closeGap(now);
    if (!m_firstLook.has_value())
        m_firstLook = now;
    if (m_watch.add(reading) == State::Absent)
        noStream(now);
    else
        closeGap(now);
    addPeriods(reading, m_watch.total(), wall);
    m_shown = reading.figures;
    if (reading.figures.present) {
        m_lastGood = now;
        m_seen = true;
    }
    return !m_pending.empty();
}

void MeasurementLog::addPeriods(
    const PeriodWatch::Reading& reading, const PeriodWatch::Total& total, WallTime wall)
{
    if (total.missed > m_counted.missed) {
        LogEntry entry = entryAt(wall, Event::Missed);
        entry.note = "up to " + std::to_string(total.missed - m_counted.missed) + " periods";
        m_totals.missed += total.missed - m_counted.missed;
        write(std::move(entry));
    }
    const long ended = total.periods - m_counted.periods;
    const bool another = !m_shown.has_value() || !sameFigures(*m_shown, reading.figures);
    const auto before = ended > 1 ? m_lastRow.value_or(wall) : wall;
    for (long i = 1; i <= ended; ++i) {
        const auto at = before + (wall - before) * i / ended; // those that look alike show only with others
        m_pending.push_back(periodEntry(another && i < ended ? *m_shown : reading.figures, at));
    }
    if (total.unsure > m_counted.unsure) {
        m_totals.unsure += total.unsure - m_counted.unsure;
        if (m_pending.empty())
            m_pending.push_back(entryAt(wall, Event::Missed));
        m_pending.back().note =
            "periods that look alike: " + std::to_string(total.unsure - m_counted.unsure) + " errors unsure";
    }
    m_counted = total;
}

void MeasurementLog::addArrivals(std::vector<std::int64_t> times, PeriodWatch::Clock::time_point answered)
{
    const auto statistics = statisticsOf(m_arrivals.add(std::move(times), answered));
    if (!m_pending.empty() && statistics.count > 0) {
        LogEntry& entry = m_pending.back();
        entry.arrivals = static_cast<std::int64_t>(statistics.count);
        entry.medianUs = statistics.median;
        entry.percentile95Us = statistics.percentile95;
        entry.percentile99Us = statistics.percentile99;
        entry.longestUs = statistics.longest;
    }
    flush();
}

void MeasurementLog::flush()
{
    for (LogEntry& entry : std::exchange(m_pending, {})) {
        if (entry.event == Event::Period) {
            ++m_totals.periods;
            m_totals.errors += entry.errors.value_or(0);
            m_lastRow = entry.time;
            if (entry.frameRate.has_value())
                watchForChange(entry);
        }
        write(std::move(entry));
    }
}

void MeasurementLog::lost(Loss loss, Moment now, const std::string& note)
{
    flush();
    // An answer that did not come has been waited for; the instrument was last known to be there before.
    openGap(loss, loss == Loss::Answer ? m_lastGood.value_or(now) : now, now, note);
    // What comes next may be of another run of the capture.
    m_watch = PeriodWatch();
    m_counted = {};
    m_shown.reset();
    m_arrivals.forget();
    m_firstLook.reset();
    m_seen = false;
}

/// A capture that has just begun has seen nothing yet, and the group may still have to be joined: that is no
/// silence of the stream.
void MeasurementLog::noStream(Moment now)
{
    constexpr double timeToCome = 2; // s
    if (m_seen)
        openGap(Loss::Stream, now, now, "");
    else if (Seconds(now.steady - m_firstLook->steady).count() >= timeToCome)
        openGap(Loss::Stream, *m_firstLook, now, "");
}

void MeasurementLog::openGap(Loss loss, Moment since, Moment now, const std::string& note)
{
    const bool same = m_gap.has_value() && m_gap->loss == loss;
    if (same)
        m_gap->note = note;
    if (same && Seconds(now.steady - m_gap->told.steady).count() < repetition)
        return;
    if (!same) {
        closeGap(now);
        m_gap = OpenGap{loss, since, now, note};
        ++m_totals.gaps;
    }
    m_gap->told = now;
    LogEntry entry = entryAt(now.wall, eventOf(loss));
    if (loss != Loss::Answer)
        entry.present = 0;
    if (!same && loss != Loss::Answer && m_settings.limits.loss)
        entry.crossed = "loss";
    entry.seconds = Seconds(now.steady - m_gap->since.steady).count();
    entry.note = note;
    write(std::move(entry));
}

void MeasurementLog::closeGap(Moment now)
{
    if (!m_gap.has_value())
        return;
    LogEntry entry = entryAt(now.wall, Event::Gap);
    entry.seconds = Seconds(now.steady - m_gap->since.steady).count();
    entry.note = nameOf(eventOf(m_gap->loss)) + (m_gap->note.empty() ? "" : "; " + m_gap->note);
    m_gap.reset();
    m_lastRow.reset();
    write(std::move(entry));
}

void MeasurementLog::watchForChange(const LogEntry& period)
{
    const bool otherDatagrams = m_stream.has_value()
        && (m_stream->packetSize != period.packetSize
            || m_stream->packetsPerDatagram != period.packetsPerDatagram);
    const auto away = [&](std::int64_t rate) {
        return static_cast<double>(std::abs(rate - *m_stream->frameRate))
            > m_settings.rateChangePercent / 100 * static_cast<double>(*m_stream->frameRate);
    };
    const bool otherRate =
        m_stream.has_value() && m_settings.rateChangePercent > 0 && away(*period.frameRate);
    if (!otherRate)
        m_rates.clear();
    else
        m_rates.push_back(*period.frameRate);
    const bool mixed = otherDatagrams && !m_otherDatagrams; // its bit rate is of both streams
    m_otherDatagrams = otherDatagrams;
    if (m_stream.has_value() && (mixed || (!otherDatagrams && m_rates.size() < periodsOfChange)))
        return;
    if (m_stream.has_value()) {
        LogEntry entry = entryAt(period.time, Event::Changed);
        entry.note = rateText(*m_stream->frameRate) + ", " + datagramText(*m_stream) + " before; "
            + rateText(*period.frameRate) + ", " + datagramText(period) + " now";
        write(std::move(entry));
    }
    m_stream = period;
    m_rates.clear();
    m_otherDatagrams = false;
}

std::string MeasurementLog::crossedBy(const LogEntry& entry) const
{
    const LogLimits& limits = m_settings.limits;
    std::string crossed;
    const auto name = [&](bool is, const char* limit) {
        if (is)
            crossed += (crossed.empty() ? "" : " ") + std::string(limit);
    };
    name(limits.delayFactorMs.has_value() && entry.delayFactorMs > limits.delayFactorMs, "delay-factor");
    name(limits.errors.has_value() && entry.errors > limits.errors, "errors");
    name(limits.frameRate.has_value() && entry.frameRate.has_value() && entry.frameRate < limits.frameRate,
        "rate");
    return crossed;
}

void MeasurementLog::write(LogEntry entry)
{
    if (entry.event == Event::Period)
        entry.crossed = crossedBy(entry);
    if (!entry.crossed.empty())
        ++m_totals.rowsWithCrossing;
    for (const char* limit : {"delay-factor", "errors", "rate", "loss"}) {
        if (entry.crossed.find(limit) != std::string::npos)
            ++m_totals.crossed[limit];
    }
    m_sink(entry);
}

void MeasurementLog::end(Moment now, const std::string& reason)
{
    flush();
    closeGap(now);
    LogEntry entry = entryAt(now.wall, Event::End);
    entry.note = reason + "; " + std::to_string(m_totals.periods) + " periods, "
        + std::to_string(m_totals.errors) + " errors";
    if (m_totals.missed > 0)
        entry.note += ", up to " + std::to_string(m_totals.missed) + " periods missed";
    if (m_totals.unsure > 0)
        entry.note += ", " + std::to_string(m_totals.unsure) + " errors unsure";
    if (m_totals.gaps > 0)
        entry.note += ", " + std::to_string(m_totals.gaps) + " gaps";
    if (m_totals.rowsWithCrossing > 0)
        entry.note += ", limits crossed in " + std::to_string(m_totals.rowsWithCrossing) + " rows";
    write(std::move(entry));
}

} // namespace tessary::ctl
