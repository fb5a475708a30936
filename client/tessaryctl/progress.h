#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace tessary::ctl {

/// While it lives, what this thread would show of its progress goes to a function instead of standard error.
class ProgressListener
{
public:
    /// `share` is of the whole, 0 to 1; nothing when that is not known.
    using Hear = std::function<void(const std::string& text, std::optional<double> share)>;

    explicit ProgressListener(Hear hear);
    ~ProgressListener();
    ProgressListener(const ProgressListener&) = delete;
    ProgressListener& operator=(const ProgressListener&) = delete;

    /// Tells this thread's listener; false when there is none.
    static bool tell(const std::string& text, std::optional<double> share = std::nullopt);

private:
    Hear m_hear;
};

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
    double shareOf(std::size_t done) const;
    /// What stands beside the bar: amount, rate, remaining time.
    std::string amountText(std::size_t done) const;

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

    /// `share` of the whole that it has come to, for a listener.
    void show(const std::string& text, std::optional<double> share = std::nullopt);

private:
    bool m_shown = false;
};

} // namespace tessary::ctl
