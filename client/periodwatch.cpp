#include "client/periodwatch.h"

#include <algorithm>
#include <cmath>

namespace tessary::client {

namespace {

using Seconds = std::chrono::duration<double>;
using Clock = PeriodWatch::Clock;

// Of the controller's clock, which may run a little faster or slower than the instrument's.
constexpr double shortest = 0.99; // of a period
constexpr double longest = 1.1; // of one of a stream whose frames come without long pauses
constexpr double presence = 2.0; // a stream that has ended counts as present for so long

/// A period whose bit rate falls below this part of the former one's has a pause in it, and may be long.
constexpr double paused = 0.75;

double between(Clock::time_point from, Clock::time_point to)
{
    return Seconds(to - from).count();
}

Clock::time_point later(Clock::time_point moment, double seconds)
{
    return moment + std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
}

long wholeParts(double seconds, double part)
{
    return std::max(0L, static_cast<long>(std::floor(seconds / part)));
}

bool looksLike(const Measurement& a, const Measurement& b)
{
    return a.bitRate == b.bitRate && a.delayFactorMs == b.delayFactorMs
        && a.continuityErrors == b.continuityErrors;
}

} // namespace

PeriodWatch::State PeriodWatch::add(const Reading& reading)
{
    if (!reading.figures.present)
        end();
    else if (m_last.has_value() && m_last->figures.present)
        follow(reading);
    else
        begin(reading);
    m_last = reading;
    return m_state;
}

PeriodWatch::Total PeriodWatch::total() const
{
    Total total = m_total;
    if (m_started && m_last->figures.present) {
        const long more = surelyEnded();
        total.periods += more;
        total.errors += more * m_last->figures.continuityErrors;
    }
    return total;
}

/// Periods that look like the one shown and have ended after it, frames having come all the time.
long PeriodWatch::surelyEnded() const
{
    return wholeParts(between(m_endedBefore, m_last->asked) - presence, longest);
}

void PeriodWatch::begin(const Reading& reading)
{
    const bool afterSilence = m_last.has_value();
    m_state = State::Settling;
    m_toSettle = afterSilence ? 2 : 3;
    // Without a silence before it the stream may be one that has ended, or be about to be followed by
    // another.
    m_settledAt = later(reading.answered, m_toSettle * longest + (afterSilence ? 0 : presence));
    m_endedAfter = afterSilence ? m_last->asked : reading.asked;
    m_endedBefore = reading.answered;
    if (!m_started)
        return;
    // The first period after a silence is over. Its errors are the stream's: those in front of the silence
    // that have not been told, and the break itself.
    m_total.missed += wholeParts(between(m_last->asked, reading.answered), shortest);
    count(1, reading.figures);
}

void PeriodWatch::end()
{
    if (m_started && m_last->figures.present) {
        const Measurement& shown = m_last->figures;
        const long least = surelyEnded();
        const long most = wholeParts(between(m_endedAfter, m_last->answered), shortest);
        count(least, shown);
        m_total.unsure += std::max(0L, most - least) * shown.continuityErrors;
    }
    m_state = State::Absent;
}

void PeriodWatch::follow(const Reading& reading)
{
    const bool changed = !looksLike(reading.figures, m_last->figures);
    const auto next = std::max(m_last->asked, later(m_endedAfter, shortest));
    const long unseen = wholeParts(between(next, reading.answered), shortest);
    if (changed)
        --m_toSettle;
    if (m_state == State::Settling && (m_toSettle <= 0 || reading.asked >= m_settledAt))
        m_state = State::Valid;
    if (m_state == State::Valid && !m_started)
        start(reading);
    else if (unseen > 0)
        skip(reading, unseen);
    else if (changed)
        endPeriods(reading);
}

void PeriodWatch::start(const Reading& reading)
{
    m_started = true;
    count(1, reading.figures);
    m_endedAfter = std::max(m_last->asked, later(reading.asked, -longest));
    m_endedBefore = reading.answered;
}

void PeriodWatch::skip(const Reading& reading, long unseen)
{
    if (m_started) {
        count(surelyEnded(), m_last->figures);
        m_total.missed += unseen;
        count(1, reading.figures);
    }
    m_endedAfter = std::max(m_endedAfter, later(reading.asked, -longest));
    m_endedBefore = reading.answered;
}

void PeriodWatch::endPeriods(const Reading& reading)
{
    const Measurement& shown = m_last->figures;
    const double apart = between(m_endedAfter, reading.answered);
    const double leastApart = between(m_endedBefore, m_last->asked);
    const long most = std::max(1L, wholeParts(apart, shortest));
    const bool pause = reading.figures.bitRate < paused * shown.bitRate;
    const long told = 1 + surelyEnded(); // by the total so far, which takes nothing back
    const long least =
        pause ? told : std::clamp(static_cast<long>(std::ceil(leastApart / longest)), told, most);
    const long likely = pause ? told : std::clamp(std::lround((apart + leastApart) / 2), least, most);
    if (m_started) {
        count(likely - 1, shown);
        count(1, reading.figures);
        m_total.unsure += (most - least) * shown.continuityErrors;
    }
    m_endedAfter = std::max(m_last->asked, later(m_endedAfter, static_cast<double>(least) * shortest));
    m_endedBefore = reading.answered;
}

void PeriodWatch::count(long periods, const Measurement& figures)
{
    m_total.periods += periods;
    m_total.errors += periods * figures.continuityErrors;
}

} // namespace tessary::client
