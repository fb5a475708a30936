#include "capture_datagrams.h"

#include <algorithm>

#include "rtp_header.h"
#include "ts_file.h"

namespace tessary::sender {

CaptureDatagrams::CaptureDatagrams(
    std::string path, const CaptureFlow& flow, std::uint64_t passes, bool keepVlan)
    : m_path(std::move(path))
    , m_flow(flow)
    , m_passes(passes)
    , m_keepVlan(keepVlan)
{
    if (keepVlan && flow.vlanBytes == 0)
        throw StreamError(m_path + ": the datagrams to " + flow.name()
            + " have no VLAN tags; leave out --keep-vlan, or capture them where the tags are");
}

bool CaptureDatagrams::belongs(const CapturedDatagram& datagram) const
{
    return datagram.address == m_flow.address && datagram.port == m_flow.port;
}

/// The next one of the flow, in the next pass if need be.
void CaptureDatagrams::readNext()
{
    while (m_reader || m_passes == 0 || m_pass < m_passes) {
        if (!m_reader) {
            m_reader.emplace(m_path);
            ++m_pass;
        }
        do {
            m_next = m_reader->next();
        } while (m_next && !belongs(*m_next));
        if (m_next)
            return;
        m_reader.reset();
    }
}

std::int64_t CaptureDatagrams::nextTimeNs()
{
    if (m_next)
        return m_timeNs;
    readNext();
    if (m_next) {
        const std::int64_t passBegan = m_flow.passNs() * static_cast<std::int64_t>(m_pass - 1);
        // The clock of a capture may have been set back in the middle.
        m_timeNs = std::max(m_timeNs, passBegan + m_next->timeNs - m_flow.firstNs);
    }
    return m_timeNs;
}

std::optional<Datagram> CaptureDatagrams::take()
{
    nextTimeNs();
    if (!m_next)
        return std::nullopt;
    Datagram datagram;
    datagram.data = m_next->data;
    datagram.size = m_next->size;
    datagram.tsBytes = m_next->size - rtpBytesOf(m_next->data, m_next->size).value_or(0);
    const std::size_t packetSize =
        detectPacketSize(datagram.data + datagram.size - datagram.tsBytes, datagram.tsBytes);
    datagram.packets = packetSize != 0 ? datagram.tsBytes / packetSize : 0;
    if (m_keepVlan) {
        datagram.vlanTags = m_next->vlanTags;
        datagram.vlanBytes = m_next->vlanBytes;
    }
    m_next.reset();
    return datagram;
}

std::size_t CaptureDatagrams::headerBytes() const
{
    return (m_flow.rtp ? RtpHeader::Bytes : 0) + (m_keepVlan ? m_flow.vlanBytes : 0);
}

} // namespace tessary::sender
