#pragma once

#include <functional>

#include "datagram_socket.h"
#include "datagram_source.h"
#include "options.h"
#include "report.h"

namespace tessary::sender {

/// Where the command line wants datagrams to go.
Target targetOf(const Options& options);

/// Sends the datagrams of a source when they are due, and counts them. Runs on the calling thread.
class SendLoop
{
public:
    /// `stopRequested` is asked before each datagram and at least every 100 ms. Borrows `source` and
    /// `outlet`.
    SendLoop(
        const Options& options, DatagramSource& source, Outlet& outlet, std::function<bool()> stopRequested);

    /// Sends until the source, a limit or the stop ends it, and returns the count. Throws NetworkError when
    /// the first datagram can not be sent, or on an error that will not pass; later failures that can pass
    /// (link down) are counted.
    Report run();

private:
    bool isOver(std::uint64_t datagrams, std::int64_t streamTimeNs) const;
    bool waitUntil(std::int64_t dueNs, bool& waited) const;
    bool send(const Datagram& datagram, bool isFirst, Report& report);

    Options m_options;
    DatagramSource& m_source;
    Outlet& m_outlet;
    std::function<bool()> m_stopRequested;
};

} // namespace tessary::sender
