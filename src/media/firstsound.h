#pragma once

#include <gst/gst.h>
#include <optional>

/// What the sound card of a live pipeline begins with. Not thread-safe.
///
/// While the first picture is waited for, sound gathers behind the decoder. A sink that began with the oldest
/// of it would throw away what is too late, one buffer after the other, and meanwhile the card, which fills
/// its whole buffer when it starts, would take silence for the rest: nothing is heard for its length, or one
/// piece and then nothing. So what is too late is dropped before the sink begins, and what it begins with is
/// as much as the card takes, in one piece.
class FirstSound
{
public:
    FirstSound() = default;
    ~FirstSound();
    FirstSound(const FirstSound&) = delete;
    FirstSound& operator=(const FirstSound&) = delete;

    enum class Fate { passes, isDropped, isKept };

    /// Before a mode begins.
    void reset();

    /// Decides on a buffer that comes to the sink `slack` before it is to be heard, at the running time
    /// `now`. What is kept is taken over; what passes is in `buffer` afterwards, with what was kept before
    /// it.
    Fate take(GstBuffer*& buffer, GstClockTimeDiff slack, GstClockTime now);

private:
    Fate begin(GstBuffer* buffer, GstClockTimeDiff slack, GstClockTime now);

    bool m_began = false; ///< sound was let pass: from then on all passes
    std::optional<GstClockTime> m_dropsUntil; ///< running time; none before anything was dropped
    GstBuffer* m_kept = nullptr; ///< owned
};
