#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tessary::sender {

/// The datagrams of a capture to one address and port, when they carry a transport stream.
struct CaptureFlow
{
    std::uint32_t address = 0; ///< host byte order
    std::uint16_t port = 0;
    bool rtp = false;
    std::uint64_t datagrams = 0;
    std::uint64_t tsBytes = 0;
    std::uint64_t cut = 0; ///< datagrams of which the capture holds only the beginning
    std::size_t vlanBytes = 0; ///< of the first datagram's tags
    std::int64_t firstNs = 0; ///< time of the first datagram, since 1970
    std::int64_t lastNs = 0;

    /// From one pass to the next: the datagrams' time and one mean distance between them, in ns.
    std::int64_t passNs() const;
    double tsBitRate() const; ///< mean bits per second of transport stream

    std::string name() const; ///< "239.0.0.1:1234"
};

/// Looks through the capture for flows of transport stream. Throws StreamError when it can not be read or
/// has none.
std::vector<CaptureFlow> findFlows(const std::string& path);

/// The flow called `name`, or with an empty name the only one. Throws UsageError when there is a choice to be
/// made and StreamError when the flow can not be sent again.
CaptureFlow chooseFlow(
    const std::string& path, const std::vector<CaptureFlow>& flows, const std::string& name);

} // namespace tessary::sender
