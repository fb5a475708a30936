#include "media/playoutneed.h"

#include <algorithm>

namespace {

constexpr std::int64_t ms = 1000000;

/// What a network may add to the way of one packet and not to that of another.
constexpr std::int64_t jitter = 50 * ms;
/// About what the elements ask for together. Nothing is won by holding back as long by oneself.
constexpr std::int64_t longest = 900 * ms;
/// A gap or two are a disturbance, this many in a row the stream's nature.
constexpr int patience = 8;

struct Way
{
    std::int64_t takes; ///< from the demultiplexer to the display or into the sound card
    std::int64_t mayBeLate; ///< and is put out all the same
};

/// A parser lets a picture go when it sees the next one, and it has to be decoded; the display takes pictures
/// that are late up to its "max-lateness". The sound card's buffer is filled 200 ms ahead and by steps of
/// 10 ms, and its sink wants 20 ms for itself.
constexpr std::array<Way, 2> ways{{{100 * ms, 200 * ms}, {230 * ms, 0}}};

} // namespace

bool PlayoutNeed::note(Media media, std::int64_t lead, bool playing)
{
    if (m_gaveUp)
        return false;
    const auto kind = static_cast<std::size_t>(media);
    const std::int64_t need = ways[kind].takes - lead;
    if (playing) {
        const bool late = m_held && need - ways[kind].mayBeLate > *m_held;
        m_late[kind] = late ? m_late[kind] + 1 : 0;
        return m_late[kind] >= patience && giveUp();
    }
    const std::int64_t enough = std::max({need + jitter, m_held.value_or(0), std::int64_t(0)});
    if (enough > longest)
        return giveUp();
    const bool changed = m_held != enough;
    m_held = enough;
    return changed;
}

bool PlayoutNeed::giveUp()
{
    m_gaveUp = true;
    const bool changed = m_held.has_value();
    m_held.reset();
    return changed;
}
