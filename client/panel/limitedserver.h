#pragma once

#include "client/panel/requestlimits.h"

#include <atomic>
#include <cstdint>
#include <httplib.h>
#include <optional>

namespace tessary::panel {

class RequestStream;

/// What a request announces of its body; nothing when it does not, or in pieces of unknown number.
std::optional<std::uint64_t> contentLengthOf(const httplib::Request& request);

/// The library's server with limits on connections and requests, which it has none or few of by itself: a request that comes
/// byte by byte would keep its thread, and fields without end its memory.
class LimitedServer : public httplib::Server
{
public:
    explicit LimitedServer(const RequestLimits& limits);

    /// To be called behind bind_to_port(): the library lets five connections wait to be accepted, and a browser that finds no
    /// place among them tries again after a second.
    void letMoreWait();
    /// stop(), also for what is being waited for.
    void end();

private:
    bool process_and_close_socket(int socket) override;
    bool serve(RequestStream& stream);

    RequestLimits m_limits;
    std::atomic<int> m_open{0};
    std::atomic<bool> m_ends{false};
};

} // namespace tessary::panel
