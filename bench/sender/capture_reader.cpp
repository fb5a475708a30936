#include "capture_reader.h"

#include <fstream>
#include <netinet/in.h>
#include <pcap/pcap.h>

#include "ts_file.h"
#include "ts_packet.h"

namespace tessary::sender {

namespace {

/// A piece of a frame from which headers are taken one after the other.
struct Rest
{
    const std::uint8_t* data;
    std::size_t size;

    unsigned word(std::size_t at) const { return static_cast<unsigned>(data[at] << 8 | data[at + 1]); }

    /// False when there are fewer bytes.
    bool skip(std::size_t bytes)
    {
        if (bytes > size)
            return false;
        data += bytes;
        size -= bytes;
        return true;
    }
};

constexpr unsigned EtherTypeIpv4 = 0x0800;
constexpr std::size_t TagBytes = 4;

bool isTag(unsigned etherType)
{
    return etherType == 0x8100 || etherType == 0x88A8 || etherType == 0x9100;
}

/// Steps over the Ethernet header and notes its tags; true when IPv4 follows.
bool skipEthernet(Rest& rest, CapturedDatagram& datagram)
{
    constexpr std::size_t AddressBytes = 12;
    if (rest.size < AddressBytes + 2 || !rest.skip(AddressBytes))
        return false;
    const std::uint8_t* const tags = rest.data;
    while (rest.size >= TagBytes + 2 && isTag(rest.word(0)))
        rest.skip(TagBytes);
    datagram.vlanBytes = static_cast<std::size_t>(rest.data - tags);
    datagram.vlanTags = datagram.vlanBytes != 0 ? tags : nullptr;
    const bool isIpv4 = rest.size >= 2 && rest.word(0) == EtherTypeIpv4;
    return isIpv4 && rest.skip(2);
}

/// Steps over a header of `bytes` that has the protocol at `protocolAt`.
bool skipCooked(Rest& rest, std::size_t bytes, std::size_t protocolAt)
{
    return rest.size >= bytes && rest.word(protocolAt) == EtherTypeIpv4 && rest.skip(bytes);
}

bool skipLinkLayer(int linkLayer, Rest& rest, CapturedDatagram& datagram)
{
    switch (linkLayer) {
    case DLT_EN10MB:
        return skipEthernet(rest, datagram);
    case DLT_LINUX_SLL:
        return skipCooked(rest, 16, 14);
    case DLT_LINUX_SLL2:
        return skipCooked(rest, 20, 0);
    default: // DLT_RAW
        return true;
    }
}

bool isFragment(const Rest& ip)
{
    return (ip.word(6) & 0x3FFFU) != 0; // more fragments, or an offset
}

/// An IPv4 header with UDP behind it.
bool holdsUdp(const Rest& ip)
{
    return ip.size >= 20 && ip.data[0] >> 4 == 4 && ip.data[9] == IPPROTO_UDP;
}

/// Steps over the IPv4 and UDP headers.
bool takeUdp(Rest rest, CapturedDatagram& datagram)
{
    constexpr std::size_t UdpBytes = 8;
    datagram.address = rest.word(16) << 16 | rest.word(18);
    if (!rest.skip(std::size_t{rest.data[0] & 0x0FU} * 4) || rest.size < UdpBytes)
        return false;
    datagram.port = static_cast<std::uint16_t>(rest.word(2));
    const std::size_t length = rest.word(4);
    if (length < UdpBytes || !rest.skip(UdpBytes))
        return false;
    datagram.isCut = rest.size < length - UdpBytes;
    datagram.data = rest.data;
    datagram.size = datagram.isCut ? rest.size : length - UdpBytes;
    return true;
}

} // namespace

std::optional<std::size_t> rtpBytesOf(const std::uint8_t* payload, std::size_t size)
{
    if (detectPacketSize(payload, size) != 0)
        return 0;
    Rest rest{payload, size};
    if (size < 12 || payload[0] >> 6 != 2 || !rest.skip(12 + std::size_t{payload[0] & 0x0FU} * 4))
        return std::nullopt;
    if ((payload[0] & 0x10) != 0 && (rest.size < 4 || !rest.skip(4 + std::size_t{rest.word(2)} * 4)))
        return std::nullopt;
    if (detectPacketSize(rest.data, rest.size) == 0)
        return std::nullopt;
    return size - rest.size;
}

bool CaptureReader::isCapture(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::uint32_t magic = 0;
    file.read(reinterpret_cast<char*>(&magic), sizeof magic);
    // pcap in microseconds and nanoseconds, in either byte order, and pcapng's section header.
    for (const std::uint32_t known : {0xA1B2C3D4U, 0xD4C3B2A1U, 0xA1B23C4DU, 0x4D3CB2A1U, 0x0A0D0D0AU}) {
        if (file && magic == known)
            return true;
    }
    return false;
}

CaptureReader::CaptureReader(const std::string& path)
    : m_path(path)
{
    char error[PCAP_ERRBUF_SIZE] = "";
    m_handle = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error);
    if (m_handle == nullptr)
        throw StreamError(std::string(error) + "; give a pcap or pcapng file");
    m_linkLayer = pcap_datalink(m_handle);
    if (m_linkLayer != DLT_EN10MB && m_linkLayer != DLT_LINUX_SLL && m_linkLayer != DLT_LINUX_SLL2
        && m_linkLayer != DLT_RAW) {
        pcap_close(m_handle);
        throw StreamError(path + ": captured on a link layer that is not known here ("
            + std::to_string(m_linkLayer) + "); capture on an Ethernet interface");
    }
}

CaptureReader::~CaptureReader()
{
    pcap_close(m_handle);
}

std::optional<CapturedDatagram> CaptureReader::next()
{
    pcap_pkthdr* header = nullptr;
    const unsigned char* frame = nullptr;
    int status = 0;
    while ((status = pcap_next_ex(m_handle, &header, &frame)) == 1) {
        CapturedDatagram datagram;
        // With the precision asked for, the field holds nanoseconds.
        datagram.timeNs = std::int64_t{header->ts.tv_sec} * 1'000'000'000 + header->ts.tv_usec;
        Rest rest{frame, header->caplen};
        if (!skipLinkLayer(m_linkLayer, rest, datagram) || !holdsUdp(rest))
            continue;
        if (isFragment(rest))
            ++m_fragments;
        else if (takeUdp(rest, datagram))
            return datagram;
    }
    if (status == PCAP_ERROR)
        throw StreamError(m_path + ": " + pcap_geterr(m_handle) + "; cut the file off there (editcap -r)");
    return std::nullopt;
}

} // namespace tessary::sender
