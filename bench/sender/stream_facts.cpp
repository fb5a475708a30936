#include "stream_facts.h"

#include <map>

namespace tessary::sender {

namespace {

/// PCR distance and bytes summed over neighbouring PCRs of one PID.
struct ClockSpan
{
    bool seen = false;
    std::uint64_t lastTicks = 0;
    std::size_t lastIndex = 0;
    std::uint64_t ticks = 0; // 27 MHz periods
    std::uint64_t packets = 0; // of the whole multiplex
    std::uint64_t steps = 0;

    void take(const std::uint8_t* packet, std::size_t index)
    {
        // PCRs are at most 100 ms apart; a step beyond a second is a jump, no time that went by.
        constexpr std::uint64_t LongestStep = 27'000'000;
        const std::uint64_t now = ts::pcr(packet);
        const std::uint64_t step = (now + ts::PcrRange - lastTicks) % ts::PcrRange;
        if (seen && !ts::isDiscontinuity(packet) && step > 0 && step < LongestStep) {
            ticks += step;
            packets += index - lastIndex;
            ++steps;
        }
        seen = true;
        lastTicks = now;
        lastIndex = index;
    }
};

bool startsPes(const std::uint8_t* packet)
{
    const std::size_t at = ts::payloadOffset(packet);
    return ts::startsUnit(packet) && !ts::isScrambled(packet) && at + 3 <= ts::PacketBytes && packet[at] == 0
        && packet[at + 1] == 0 && packet[at + 2] == 1;
}

} // namespace

StreamFacts readFacts(const TsFile& file)
{
    StreamFacts facts;
    std::map<unsigned, ClockSpan> spans;
    for (std::size_t i = 0; i < file.packetCount(); ++i) {
        const std::uint8_t* packet = file.packet(i);
        const unsigned pid = ts::pid(packet);
        if (pid == ts::NullPid)
            continue;
        if (ts::hasPcr(packet))
            spans[pid].take(packet, i);
        if (startsPes(packet))
            facts.pesPids.set(pid);
    }
    const ClockSpan* best = nullptr;
    for (const auto& entry : spans) {
        if (entry.second.ticks > 0 && (best == nullptr || entry.second.steps > best->steps))
            best = &entry.second;
    }
    if (best != nullptr) {
        const double bits = static_cast<double>(best->packets * file.packetSize()) * 8;
        facts.bitRateFromPcr = bits * 27e6 / static_cast<double>(best->ticks);
    }
    return facts;
}

} // namespace tessary::sender
