#include "report.h"

#include <algorithm>
#include <cstdio>

namespace tessary::sender {

void Report::sent(
    std::size_t packets, std::size_t tsBytes, std::int64_t nowNs, std::int64_t lagNs, bool waited)
{
    if (m_datagrams == 0)
        m_firstNs = nowNs;
    m_lastNs = nowNs;
    ++m_datagrams;
    m_packets += packets;
    m_tsBytes += tsBytes;
    m_lastTsBytes = tsBytes;
    m_maxLagNs = std::max(m_maxLagNs, lagNs);
    m_burst = waited ? 1 : m_burst + 1;
    m_longestBurst = std::max(m_longestBurst, m_burst);
}

void Report::finish(std::uint64_t errorsMade, std::uint64_t passes, std::int64_t movedNs)
{
    m_errorsMade = errorsMade;
    m_passes = passes;
    m_movedNs = movedNs;
}

double Report::seconds() const
{
    if (m_datagrams == 0)
        return 0;
    return static_cast<double>(m_lastNs - m_firstNs) / 1e9
        + static_cast<double>(m_lastTsBytes) * 8 / m_targetBitRate;
}

double Report::tsBitRate() const
{
    return m_datagrams == 0 ? 0 : static_cast<double>(m_tsBytes) * 8 / seconds();
}

double Report::frameBitRate() const
{
    return m_datagrams == 0 ? 0 : static_cast<double>(frameBits()) / seconds();
}

namespace {

template <typename... Values> std::string format(const char* pattern, Values... values)
{
    char text[1024];
    std::snprintf(text, sizeof text, pattern, values...);
    return text;
}

} // namespace

std::string Report::json() const
{
    using Number = unsigned long long;
    return format(
        "{\"datagrams\": %llu, \"ts_packets\": %llu, \"ts_bytes\": %llu, \"frame_bits\": %llu, \"seconds\": "
        "%.6f, "
        "\"ts_bits_per_second\": %.1f, \"frame_bits_per_second\": %.1f, \"target_ts_bits_per_second\": %.1f, "
        "\"injected_cc_errors\": %llu, \"failed_datagrams\": %llu, \"passes\": %llu, \"max_late_us\": %.1f, "
        "\"longest_burst\": %llu, \"not_caught_up_ms\": %.3f}",
        Number{m_datagrams}, Number{m_packets}, Number{m_tsBytes}, Number{frameBits()}, seconds(),
        tsBitRate(), frameBitRate(), m_targetBitRate, Number{m_errorsMade}, Number{m_failed},
        Number{m_passes}, static_cast<double>(m_maxLagNs) / 1e3, Number{m_longestBurst},
        static_cast<double>(m_movedNs) / 1e6);
}

std::string Report::text() const
{
    using Number = unsigned long long;
    std::string lines =
        format("%llu datagrams, %llu TS packets, %llu bytes of them, %llu frame bits in %.3f s\n",
            Number{m_datagrams}, Number{m_packets}, Number{m_tsBytes}, Number{frameBits()}, seconds());
    lines += format("%.0f bit/s of TS packets (wanted %.0f), %.0f bit/s of whole frames\n", tsBitRate(),
        m_targetBitRate, frameBitRate());
    lines +=
        format("%llu continuity errors put in, %llu passes begun, %llu datagrams refused by the network\n",
            Number{m_errorsMade}, Number{m_passes}, Number{m_failed});
    return lines
        + format("at most %.0f us late, at most %llu datagrams in a burst, %.0f ms not caught up\n",
            static_cast<double>(m_maxLagNs) / 1e3, Number{m_longestBurst},
            static_cast<double>(m_movedNs) / 1e6);
}

} // namespace tessary::sender
