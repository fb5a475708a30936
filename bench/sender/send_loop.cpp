#include "send_loop.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "pacer.h"

namespace tessary::sender {

namespace {

constexpr std::size_t FrameHeaderBytes = 14 + 20 + 8; // Ethernet, IPv4, UDP
constexpr std::int64_t LongestSleepNs = 100'000'000; // so that a stop is noticed
constexpr std::int64_t NsPerSecond = 1'000'000'000;

std::int64_t nowNs()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * NsPerSecond + now.tv_nsec;
}

} // namespace

Target targetOf(const Options& options)
{
    return {options.host, options.port, options.ttl, options.interface, options.multicastLoop};
}

SendLoop::SendLoop(
    const Options& options, DatagramSource& source, Outlet& outlet, std::function<bool()> stopRequested)
    : m_options(options)
    , m_source(source)
    , m_outlet(outlet)
    , m_stopRequested(std::move(stopRequested))
{
}

Report SendLoop::run()
{
    Report report(FrameHeaderBytes + m_source.headerBytes(), m_source.tsBitRate());
    Pacer pacer;
    pacer.start(nowNs());
    for (std::uint64_t datagrams = 0;; ++datagrams) {
        const std::int64_t streamTime = m_source.nextTimeNs();
        if (isOver(datagrams, streamTime))
            break;
        const std::optional<Datagram> datagram = m_source.take();
        bool waited = false;
        if (!datagram || !waitUntil(pacer.dueNs(streamTime), waited))
            break;
        const std::int64_t now = nowNs();
        const std::int64_t lag = pacer.sent(streamTime, now);
        if (send(*datagram, datagrams == 0, report))
            report.sent(datagram->packets, datagram->tsBytes, now, lag, waited);
    }
    report.finish(m_source.errorsMade(), m_source.passesBegun(), pacer.movedNs());
    return report;
}

bool SendLoop::isOver(std::uint64_t datagrams, std::int64_t streamTimeNs) const
{
    return (m_options.datagramLimit != 0 && datagrams == m_options.datagramLimit)
        || (m_options.durationNs != 0 && streamTimeNs >= m_options.durationNs) || m_stopRequested();
}

bool SendLoop::waitUntil(std::int64_t dueNs, bool& waited) const
{
    for (std::int64_t now = nowNs(); now < dueNs; now = nowNs()) {
        waited = true;
        const std::int64_t until = std::min(dueNs, now + LongestSleepNs);
        timespec time{};
        time.tv_sec = static_cast<time_t>(until / NsPerSecond);
        time.tv_nsec = static_cast<long>(until % NsPerSecond);
        ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
        if (m_stopRequested())
            return false;
    }
    return true;
}

bool SendLoop::send(const Datagram& datagram, bool isFirst, Report& report)
{
    const int error = m_outlet.send(datagram);
    if (error == 0)
        return true;
    const std::string cause = m_options.host + ": " + std::strerror(error);
    if (error == EMSGSIZE)
        throw NetworkError(cause + "; give fewer --packets");
    if (isFirst || !Outlet::isPassing(error))
        throw NetworkError(
            cause + "; check that the interface is up and the target is reachable, or give --interface");
    report.failed();
    return false;
}

} // namespace tessary::sender
