#pragma once

#include "basebanddecoder.h"
#include "packetizer.h"
#include "t2midemux.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace tessary::t2mi {

/// The whole way from received bytes to the inner transport stream: packets, T2-MI packets, baseband frames
/// of one PLP, packets of 188 bytes. push() belongs to one thread; lastPacket() may be called from any other
/// meanwhile.
class Extractor
{
public:
    Extractor(int pid, int plp);

    /// Takes `size` received bytes, in chunks of any size, and appends the packets they complete to `out`.
    void push(const std::uint8_t* data, std::size_t size, std::vector<std::uint8_t>& out);

    /// A copy of the newest whole T2-MI packet of any type (header, payload, CRC), empty before the first
    /// one.
    std::vector<std::uint8_t> lastPacket() const;

    const T2MiDemux::Counters& t2miCounters() const { return m_demux.counters(); }
    const BasebandDecoder::Counters& basebandCounters() const { return m_baseband.counters(); }

private:
    void onPacket(const std::uint8_t* packet, std::size_t size);

    Packetizer m_packetizer;
    T2MiDemux m_demux;
    BasebandDecoder m_baseband;
    std::vector<std::uint8_t>* m_out = nullptr; // set during push()
    mutable std::mutex m_lastMutex;
    std::vector<std::uint8_t> m_last; // guarded by m_lastMutex
};

} // namespace tessary::t2mi
