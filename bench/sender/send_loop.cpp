#include "send_loop.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <random>
#include <vector>

#include "error_schedule.h"
#include "pacer.h"

namespace sender {

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

std::uint32_t randomNumber()
{
    return std::random_device{}();
}

Target targetOf(const Options& options)
{
    return {options.host, options.port, options.ttl, options.interface, options.multicastLoop};
}

std::size_t packetSizeOf(const Options& options, const TsFile& file)
{
    return options.packetSize != 0 ? options.packetSize : file.packetSize();
}

SourceSettings settingsOf(const Options& options, const TsFile& file, const StreamFacts& facts)
{
    SourceSettings settings;
    settings.packetSize = packetSizeOf(options, file);
    settings.passes = options.passes;
    const bool repeats = options.passes != 1 && options.restamp;
    settings.rewriteCounters = repeats || options.errorsPerSecond > 0;
    if (repeats && facts.bitRateFromPcr > 0) {
        const double bits = static_cast<double>(file.packetCount() * file.packetSize()) * 8;
        settings.restampTicks = static_cast<std::uint64_t>(std::llround(bits / facts.bitRateFromPcr * 27e6));
    }
    settings.breakablePids = facts.pesPids;
    if (facts.pesPids.none())
        settings.breakablePids.set();
    return settings;
}

double bitRateOf(const Options& options, const TsFile& file, const StreamFacts& facts)
{
    const std::size_t size = packetSizeOf(options, file);
    if (options.bitRate > 0)
        return options.bitRate;
    if (options.datagramRate > 0)
        return options.datagramRate * static_cast<double>(options.packetsPerDatagram * size * 8);
    if (facts.bitRateFromPcr <= 0)
        throw StreamError(options.file + ": no two PCRs of one PID tell the rate; give --bitrate");
    return facts.bitRateFromPcr * static_cast<double>(size) / static_cast<double>(file.packetSize());
}

} // namespace

SendLoop::SendLoop(const Options& options, const TsFile& file, std::function<bool()> stopRequested)
    : SendLoop(options, file, readFacts(file), std::move(stopRequested))
{
}

SendLoop::SendLoop(
    const Options& options, const TsFile& file, const StreamFacts& facts, std::function<bool()> stopRequested)
    : m_options(options)
    , m_packetSize(packetSizeOf(options, file))
    , m_bitRate(bitRateOf(options, file, facts))
    , m_stopRequested(std::move(stopRequested))
    , m_socket(targetOf(options))
    , m_source(file, settingsOf(options, file, facts))
    , m_rtp(randomNumber(), static_cast<std::uint16_t>(randomNumber()), randomNumber())
{
}

Report SendLoop::run()
{
    const std::size_t rtpBytes = m_options.rtp ? RtpHeader::Bytes : 0;
    std::vector<std::uint8_t> datagram(rtpBytes + m_options.packetsPerDatagram * m_packetSize);
    Report report(FrameHeaderBytes + rtpBytes, m_bitRate);
    Pacer pacer(m_bitRate);
    const ErrorSchedule errors(m_options.errorsPerSecond);
    pacer.start(nowNs());
    std::uint64_t bitsBefore = 0;
    for (std::uint64_t datagrams = 0;; ++datagrams) {
        const std::int64_t streamTime = pacer.streamTimeNs(bitsBefore);
        bool waited = false;
        if (isOver(datagrams, streamTime))
            break;
        m_source.breakCounters(errors.dueUntil(streamTime));
        const std::size_t packets = fill(datagram.data() + rtpBytes);
        if (packets == 0 || !waitUntil(pacer.dueNs(bitsBefore), waited))
            break;
        if (m_options.rtp)
            m_rtp.write(datagram.data(), streamTime);
        const std::size_t tsBytes = packets * m_packetSize;
        const std::int64_t now = nowNs();
        const std::int64_t lag = pacer.sent(bitsBefore, now);
        if (send(datagram.data(), rtpBytes + tsBytes, datagrams == 0, report))
            report.sent(packets, tsBytes, now, lag, waited);
        bitsBefore += tsBytes * 8;
    }
    report.finish(m_source.errorsMade(), m_source.passesBegun(), pacer.movedNs());
    return report;
}

std::size_t SendLoop::fill(std::uint8_t* out)
{
    std::size_t packets = 0;
    while (packets < m_options.packetsPerDatagram && m_source.next(out + packets * m_packetSize))
        ++packets;
    return packets;
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

bool SendLoop::send(const std::uint8_t* data, std::size_t size, bool isFirst, Report& report)
{
    const int error = m_socket.send(data, size);
    if (error == 0)
        return true;
    const std::string cause = m_options.host + ": " + std::strerror(error);
    if (error == EMSGSIZE)
        throw NetworkError(cause + "; give fewer --packets");
    if (isFirst || !DatagramSocket::isPassing(error))
        throw NetworkError(
            cause + "; check that the interface is up and the target is reachable, or give --interface");
    report.failed();
    return false;
}

} // namespace sender
