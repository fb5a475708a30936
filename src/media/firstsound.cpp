#include "media/firstsound.h"

namespace {

/// The sound card's buffer holds 200 ms, and a period of 10 ms is on its way.
constexpr GstClockTime cardTakes = 210 * GST_MSECOND;
/// With as much time left the card has not begun with silence when the sound comes to it.
constexpr GstClockTimeDiff inGoodTime = 230 * GST_MSECOND;
/// Longer than it takes to drop what has gathered. Sound that is late for longer is not what has gathered.
constexpr GstClockTime dropTime = 500 * GST_MSECOND;

} // namespace

FirstSound::~FirstSound()
{
    reset();
}

void FirstSound::reset()
{
    m_began = false;
    m_dropsUntil.reset();
    gst_clear_buffer(&m_kept);
}

FirstSound::Fate FirstSound::take(GstBuffer*& buffer, GstClockTimeDiff slack, GstClockTime now)
{
    if (m_began)
        return Fate::passes;
    if (!m_kept)
        return begin(buffer, slack, now);
    const GstClockTime more = GST_BUFFER_DURATION_IS_VALID(buffer) ? GST_BUFFER_DURATION(buffer) : cardTakes;
    const GstClockTime length = GST_BUFFER_DURATION(m_kept) + more;
    m_kept = gst_buffer_append(gst_buffer_make_writable(m_kept), buffer);
    GST_BUFFER_DURATION(m_kept) = length;
    if (length < cardTakes)
        return Fate::isKept;
    buffer = m_kept;
    m_kept = nullptr;
    m_began = true;
    return Fate::passes;
}

FirstSound::Fate FirstSound::begin(GstBuffer* buffer, GstClockTimeDiff slack, GstClockTime now)
{
    if (slack < 0) {
        if (!m_dropsUntil)
            m_dropsUntil = now + dropTime;
        if (now < *m_dropsUntil)
            return Fate::isDropped;
    } else if (slack < inGoodTime && GST_BUFFER_DURATION_IS_VALID(buffer)) {
        m_kept = buffer;
        return Fate::isKept;
    }
    m_began = true;
    return Fate::passes;
}
