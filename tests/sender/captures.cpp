#include "captures.h"

#include <gtest/gtest.h>
#include <memory>
#include <pcap/pcap.h>
#include <unistd.h>

namespace tessary::test {

namespace {

/// pcapng's numbers have the writer's byte order.
void putNative(Bytes& out, std::uint32_t value)
{
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

/// A block of type `type`, padded, its length on both sides.
void putBlock(Bytes& out, std::uint32_t type, Bytes body)
{
    body.resize((body.size() + 3) / 4 * 4);
    const auto length = static_cast<std::uint32_t>(body.size() + 12);
    putNative(out, type);
    putNative(out, length);
    append(out, body);
    putNative(out, length);
}

/// A pcap file being written.
class PcapFile
{
public:
    PcapFile(const std::string& path, int linkLayer, std::size_t snapLength)
        : m_handle(pcap_open_dead_with_tstamp_precision(
            linkLayer, static_cast<int>(snapLength), PCAP_TSTAMP_PRECISION_NANO))
        , m_file(pcap_dump_open(m_handle, path.c_str()))
        , m_snapLength(snapLength)
    {
    }
    ~PcapFile()
    {
        pcap_dump_close(m_file);
        pcap_close(m_handle);
    }
    PcapFile(const PcapFile&) = delete;
    PcapFile& operator=(const PcapFile&) = delete;

    void add(std::int64_t timeNs, const Bytes& frame)
    {
        pcap_pkthdr header{};
        header.ts.tv_sec = timeNs / 1'000'000'000;
        header.ts.tv_usec = timeNs % 1'000'000'000;
        header.len = static_cast<bpf_u_int32>(frame.size());
        header.caplen = static_cast<bpf_u_int32>(std::min(frame.size(), m_snapLength));
        pcap_dump(reinterpret_cast<unsigned char*>(m_file), &header, frame.data());
    }

private:
    pcap_t* m_handle;
    pcap_dumper_t* m_file;
    std::size_t m_snapLength;
};

} // namespace

Bytes frameOf(const Captured& datagram)
{
    Bytes frame{0x01, 0x00, 0x5E, 1, 2, 3, 2, 0, 0, 0, 0, 1};
    append(frame, datagram.tags);
    append16(frame, 0x0800);
    append16(frame, 0x4600); // with a word of options
    append16(frame, 24 + 8 + datagram.payload.size());
    append16(frame, 7);
    append16(frame, datagram.fragment);
    append(frame, {4, 17, 0, 0, 10, 0, 0, 1});
    append32(frame, datagram.address);
    append(frame, {1, 1, 1, 0});
    append16(frame, 40000);
    append16(frame, datagram.port);
    append16(frame, 8 + datagram.payload.size());
    append16(frame, 0);
    append(frame, datagram.payload);
    return frame;
}

Bytes asRtp(const Bytes& payload)
{
    Bytes rtp{0x91, 33, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0xBE, 0xDE, 0, 1, 9, 9, 9, 9};
    append(rtp, payload);
    return rtp;
}

std::string writePcap(const std::string& name, const std::vector<Captured>& datagrams, std::size_t snapLength)
{
    const std::string path = writeFile(name, {});
    PcapFile file(path, DLT_EN10MB, snapLength);
    for (const Captured& datagram : datagrams)
        file.add(datagram.timeNs, frameOf(datagram));
    return path;
}

std::string writeOtherPcap(const std::string& name, int linkLayer, const Bytes& frame)
{
    const std::string path = writeFile(name, {});
    PcapFile(path, linkLayer, 65535).add(0, frame);
    return path;
}

std::string writePcapng(const std::string& name, const std::vector<Captured>& datagrams)
{
    Bytes file;
    Bytes section;
    putNative(section, 0x1A2B3C4D);
    putNative(section, 1); // version 1.0
    putNative(section, 0xFFFFFFFF); // length unknown
    putNative(section, 0xFFFFFFFF);
    putBlock(file, 0x0A0D0D0A, section);
    Bytes interface;
    putNative(interface, DLT_EN10MB);
    putNative(interface, 65535);
    putNative(interface, 0x00010009); // if_tsresol, one byte:
    putNative(interface, 9); // nanoseconds
    putNative(interface, 0);
    putBlock(file, 1, interface);
    for (const Captured& datagram : datagrams) {
        const Bytes frame = frameOf(datagram);
        Bytes block;
        putNative(block, 0);
        putNative(block, static_cast<std::uint32_t>(datagram.timeNs >> 32));
        putNative(block, static_cast<std::uint32_t>(datagram.timeNs));
        putNative(block, static_cast<std::uint32_t>(frame.size()));
        putNative(block, static_cast<std::uint32_t>(frame.size()));
        append(block, frame);
        putBlock(file, 6, block);
    }
    return writeFile(name, file);
}

} // namespace tessary::test
