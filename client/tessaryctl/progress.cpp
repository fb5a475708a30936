#include "client/tessaryctl/progress.h"

#include "client/tessaryctl/terminal.h"

#include <iostream>

namespace tessary::ctl {

using Clock = std::chrono::steady_clock;

namespace {

thread_local const ProgressListener::Hear* listener = nullptr; // the living ProgressListener's

} // namespace

ProgressListener::ProgressListener(Hear hear)
    : m_hear(std::move(hear))
{
    listener = &m_hear;
}

ProgressListener::~ProgressListener()
{
    listener = nullptr;
}

bool ProgressListener::tell(const std::string& text, std::optional<double> share)
{
    if (listener == nullptr)
        return false;
    (*listener)(text, share);
    return true;
}

ProgressBar::ProgressBar(std::string what, std::size_t total)
    : m_what(std::move(what))
    , m_total(total)
    , m_terminal(errorIsTerminal())
{
}

ProgressBar::~ProgressBar()
{
    if (m_drawn)
        std::cerr << std::endl;
}

double ProgressBar::shareOf(std::size_t done) const
{
    return m_total == 0 ? 1 : static_cast<double>(done) / static_cast<double>(m_total);
}

std::string ProgressBar::amountText(std::size_t done) const
{
    const double seconds = std::chrono::duration<double>(Clock::now() - m_start).count();
    const double rate = seconds > 0.2 ? static_cast<double>(done) / seconds : 0;
    std::string amount =
        byteCount(static_cast<double>(done)) + " of " + byteCount(static_cast<double>(m_total));
    if (rate > 0)
        amount += ", " + byteCount(rate) + "/s, "
            + (done < m_total ? durationText(static_cast<double>(m_total - done) / rate) + " left"
                              : "took " + durationText(seconds));
    return amount;
}

std::string ProgressBar::text(std::size_t done) const
{
    constexpr std::size_t barWidth = 30;
    const double share = shareOf(done);
    return m_what + " " + padded(fixed(share * 100, 0) + " %", 5) + " ["
        + padded(bar(share, barWidth), barWidth) + "] " + amountText(done);
}

void ProgressBar::update(std::size_t done)
{
    const auto now = Clock::now();
    if (ProgressListener::tell(m_what + " " + amountText(done), shareOf(done)))
        return;
    if (m_terminal) {
        if (done < m_total && now - m_shown < std::chrono::milliseconds(100))
            return;
        m_shown = now;
        m_drawn = true;
        std::cerr << '\r' << text(done) << "\033[K" << std::flush;
        return;
    }
    if (done * 10 < m_nextTenth * m_total)
        return;
    m_nextTenth = m_total == 0 ? 11 : done * 10 / m_total + 1;
    std::cerr << text(done) << std::endl;
}

StatusLine::~StatusLine()
{
    if (m_shown)
        std::cerr << "\r\033[K" << std::flush;
}

void StatusLine::show(const std::string& text, std::optional<double> share)
{
    if (ProgressListener::tell(text, share) || !errorIsTerminal())
        return;
    m_shown = true;
    std::cerr << '\r' << cutToWidth(text, terminalWidth() - 1) << "\033[K" << std::flush;
}

} // namespace tessary::ctl
