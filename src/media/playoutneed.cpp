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
/// Behind by as much, this often in a row: about a second's pictures, and sound for less.
constexpr int behindFor = 25;
/// Data that come by so much nearer to their time are catching up.
constexpr std::int64_t catchingUp = 200 * ms;

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
    const auto kind = static_cast<std::size_t>(media);
    const std::int64_t need = ways[kind].takes - lead;
    if (m_gaveUp)
        return noteBehind(kind, need);
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

bool PlayoutNeed::noteBehind(std::size_t kind, std::int64_t need)
{
    Behind& row = m_behind[kind];
    row.isThere = true;
    if (need - ways[kind].mayBeLate <= m_held.value_or(longest)) {
        row.count = 0;
        return false;
    }
    const bool begins = row.count == 0 || need < row.need - catchingUp;
    row.need = begins ? need : std::max(row.need, need);
    row.count = begins ? 1 : row.count + 1;
    for (const Behind& other : m_behind) {
        if (other.isThere && other.count < behindFor)
            return false;
    }
    m_held = std::max(m_behind[0].need, m_behind[1].need) + jitter;
    m_behind = {};
    return true;
}

bool PlayoutNeed::giveUp()
{
    m_gaveUp = true;
    const bool changed = m_held.has_value();
    m_held.reset();
    return changed;
}
