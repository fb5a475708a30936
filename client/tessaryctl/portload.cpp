#include "client/tessaryctl/portload.h"

#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <regex>

namespace tessary::ctl {

std::optional<std::uint64_t> receivedBytes(const std::string& ifconfigText)
{
    static const std::regex form(R"(RX packets \d+\s+bytes (\d{1,19})\b)");
    std::smatch parts;
    if (!std::regex_search(ifconfigText, parts, form))
        return std::nullopt;
    return std::stoull(parts[1]);
}

bool hasOtherTraffic(double received, double stream)
{
    constexpr double least = 1e6;
    constexpr double share = 0.25; // a stream whose rate varies may be so far off its own mean
    return received - stream > std::max(least, share * stream);
}

void remarkOnOtherTraffic(const Context& context, std::optional<double> received, double stream)
{
    if (received.has_value() && hasOtherTraffic(*received, stream))
        context.note("remark: eth0 receives " + bitRateText(*received)
            + " in all, so something comes in beside this stream. Groups joined for earlier stream servers "
              "stay joined until the link goes down; tessaryctl server --leave GROUP leaves one");
}

PortLoad::PortLoad(client::Controller& controller)
    : m_controller(controller)
    , m_before(receivedBytes(controller.ipStatus()))
    , m_since(std::chrono::steady_clock::now())
{
}

std::optional<double> PortLoad::bitRate() const
{
    const auto now = receivedBytes(m_controller.ipStatus());
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_since).count();
    if (!now.has_value() || !m_before.has_value() || *now < *m_before || seconds <= 0)
        return std::nullopt;
    return 8 * static_cast<double>(*now - *m_before) / seconds;
}

void PortWatch::add(std::optional<double> stream)
{
    constexpr std::chrono::seconds window{5};
    if (!stream.has_value()) {
        m_load.reset();
        m_received.reset();
        return;
    }
    if (!m_load.has_value())
        return begin();
    m_sum += *stream;
    ++m_readings;
    if (std::chrono::steady_clock::now() < m_load->since() + window)
        return;
    m_received = m_load->bitRate();
    m_stream = m_sum / static_cast<double>(m_readings);
    begin();
}

void PortWatch::begin()
{
    m_load.emplace(m_controller);
    m_sum = 0;
    m_readings = 0;
}

std::optional<double> PortWatch::beside() const
{
    if (!m_received.has_value() || !hasOtherTraffic(*m_received, m_stream))
        return std::nullopt;
    return *m_received - m_stream;
}

} // namespace tessary::ctl
