#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct pcap;

namespace tessary::sender {

/// A UDP datagram of a capture. `data` and `vlanTags` are borrowed from the reader until the next one is
/// read.
struct CapturedDatagram
{
    std::int64_t timeNs = 0; ///< since 1970
    std::uint32_t address = 0; ///< destination, host byte order
    std::uint16_t port = 0; ///< destination
    const std::uint8_t* data = nullptr; ///< payload
    std::size_t size = 0; ///< of the payload as captured
    bool isCut = false; ///< the capture holds only its beginning
    const std::uint8_t* vlanTags = nullptr; ///< IEEE 802.1Q tags as on the wire
    std::size_t vlanBytes = 0;
};

/// Bytes of the RTP header (RFC 3550: contributing sources and extension included) when transport stream
/// packets stand behind one, 0 when the payload begins with such a packet; nothing for anything else.
std::optional<std::size_t> rtpBytesOf(const std::uint8_t* payload, std::size_t size);

/// Reads the UDP datagrams of a pcap or pcapng file in their order, by libpcap. Fragments of IPv4 datagrams
/// are passed over and counted.
class CaptureReader
{
public:
    /// True when the file begins as a capture does; false also for one that can not be read.
    static bool isCapture(const std::string& path);

    /// Throws StreamError when the file can not be read, or its link layer is none of Ethernet, Linux
    /// "cooked" and raw IP.
    explicit CaptureReader(const std::string& path);
    ~CaptureReader();
    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    /// Throws StreamError when the file is damaged.
    std::optional<CapturedDatagram> next();

    std::uint64_t fragments() const { return m_fragments; } ///< passed over so far

private:
    std::string m_path;
    pcap* m_handle; ///< owned
    int m_linkLayer;
    std::uint64_t m_fragments = 0;
};

} // namespace tessary::sender
