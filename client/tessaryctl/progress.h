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

} // namespace tessary::ctl
