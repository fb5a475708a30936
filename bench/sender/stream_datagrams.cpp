#include "stream_datagrams.h"

#include <cmath>
#include <random>

namespace tessary::sender {

namespace {

std::uint32_t randomNumber()
{
    return std::random_device{}();
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

std::int64_t timeAtRate(std::uint64_t bitsBefore, double bitsPerSecond)
{
    // long double keeps 64 bits on the machines this runs on: exact to the nanosecond for centuries at these
    // rates.
    const long double seconds =
        static_cast<long double>(bitsBefore) / static_cast<long double>(bitsPerSecond);
    return static_cast<std::int64_t>(seconds * 1'000'000'000.0L);
}

StreamDatagrams::StreamDatagrams(const Options& options, const TsFile& file)
    : StreamDatagrams(options, file, readFacts(file))
{
}

StreamDatagrams::StreamDatagrams(const Options& options, const TsFile& file, const StreamFacts& facts)
    : m_packetSize(packetSizeOf(options, file))
    , m_bitRate(bitRateOf(options, file, facts))
    , m_rtpBytes(options.rtp ? RtpHeader::Bytes : 0)
    , m_packetsPerDatagram(options.packetsPerDatagram)
    , m_source(file, settingsOf(options, file, facts))
    , m_errors(options.errorsPerSecond, options.errorsFromNs, options.errorsForNs)
    , m_rtp(randomNumber(), static_cast<std::uint16_t>(randomNumber()), randomNumber())
    , m_datagram(m_rtpBytes + m_packetsPerDatagram * m_packetSize)
{
}

std::optional<Datagram> StreamDatagrams::take()
{
    const std::int64_t time = nextTimeNs();
    m_source.breakCounters(m_errors.dueUntil(time));
    std::uint8_t* const packets = m_datagram.data() + m_rtpBytes;
    std::size_t count = 0;
    while (count < m_packetsPerDatagram && m_source.next(packets + count * m_packetSize))
        ++count;
    if (count == 0)
        return std::nullopt;
    if (m_rtpBytes != 0)
        m_rtp.write(m_datagram.data(), time);
    Datagram datagram;
    datagram.data = m_datagram.data();
    datagram.packets = count;
    datagram.tsBytes = count * m_packetSize;
    datagram.size = m_rtpBytes + datagram.tsBytes;
    m_bitsBefore += datagram.tsBytes * 8;
    return datagram;
}

} // namespace tessary::sender
