#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace tessary::ctl {

/// A bar with share, amount, rate and remaining time on standard error; on a terminal it is redrawn in place,
/// elsewhere a line is written every ten percent.
class ProgressBar
{
public:
    ProgressBar(std::string what, std::size_t total);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void update(std::size_t done);

private:
    std::string text(std::size_t done) const;

    std::string m_what;
    std::size_t m_total;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_shown{};
    std::size_t m_nextTenth = 0;
    bool m_terminal;
    bool m_drawn = false;
};

/// What goes on at the moment, in one line on standard error that is written over by the next; nothing where
/// that is no terminal.
class StatusLine
{
public:
    StatusLine() = default;
    /// Takes the line away.
    ~StatusLine();
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    void show(const std::string& text);

private:
    bool m_shown = false;
};

} // namespace tessary::ctl
