#pragma once

#include "client/measurement.h"

#include <chrono>
#include <optional>

namespace tessary::client {

/// Tells from readings of the measurement which of its periods (docs/measurement.md) they show, so that each
/// period counts once however often or seldom it is read. Nothing in a reading names its period; what is
/// known:
///
/// - A period is longer than a second, by no more than the time between two frames, while frames come in.
/// - The figures change at its end and at no other moment. The bit rate alone, to the bit, is hardly ever
///   that of the period before. So a reading with other figures shows another period; one with the same
///   figures after more than a period's time shows another one that happens to look the same.
/// - Of what runs at the start, or was caught up in a silence, something is in the first two periods: what
///   was gathered before; then the continuity counters of before and a virtual buffer that drains by the bit
///   rate of the first. The third is the stream's own. After a silence the first ends with its first frame.
///
/// Readings should come at least three times a second. Where more than a period's time lies between two,
/// periods may have been missed; where some look alike for long, their number is not known. The total says
/// so.
class PeriodWatch
{
public:
    using Clock = std::chrono::steady_clock;

    struct Reading
    {
        Clock::time_point asked; ///< before the question was sent ...
        /// ... and when the answer was there: the figures are of a moment between.
        Clock::time_point answered;
        Measurement figures;
    };

    enum class State {
        Absent, ///< no stream
        Settling, ///< the figures hold something of before the start, or of before the stream came (back)
        Valid
    };

    State add(const Reading& reading);
    State state() const { return m_state; }

    /// What has been counted since the first valid period, that one included.
    struct Total
    {
        long periods = 0;
        long errors = 0;
        long missed = 0; ///< at most so many periods more, of which nothing is known
        long unsure = 0; ///< the errors may be so many more or fewer: periods that look alike

        bool exact() const { return missed == 0 && unsure == 0; }
    };
    Total total() const;

private:
    void begin(const Reading& reading);
    void end();
    void follow(const Reading& reading);
    void start(const Reading& reading);
    void skip(const Reading& reading, long unseen);
    void endPeriods(const Reading& reading);
    void count(long periods, const Measurement& figures);
    long surelyEnded() const;

    State m_state = State::Absent;
    bool m_started = false; ///< there has been a valid period
    std::optional<Reading> m_last;
    int m_toSettle = 0; ///< periods that have to end before the figures are the stream's own
    Clock::time_point m_settledAt; ///< by then they have, also when they all look alike
    Clock::time_point m_endedAfter; ///< the period shown ended after this moment ...
    Clock::time_point m_endedBefore; ///< ... and before this one
    Total m_total;
};

} // namespace tessary::client
