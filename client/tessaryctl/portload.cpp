#include "client/tessaryctl/portload.h"

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

} // namespace tessary::ctl
