#include "continuity_rewriter.h"

namespace tessary::sender {

bool ContinuityRewriter::process(std::uint8_t* packet, bool breakHere)
{
    const unsigned number = ts::pid(packet);
    if (number == ts::NullPid)
        return false;
    Pid& pid = m_pids[number];
    const bool payload = ts::hasPayload(packet);
    const unsigned inFile = ts::continuityCounter(packet);
    const bool sentBefore = pid.pass != 0;
    // A packet without payload repeats its predecessor's counter.
    const unsigned expected = (pid.sent + (payload ? 1U : 0U)) & 0x0FU;
    if (sentBefore && pid.pass != m_pass)
        pid.offset = static_cast<std::uint8_t>((expected - inFile) & 0x0FU);
    pid.pass = m_pass;

    unsigned counter = (inFile + pid.offset) & 0x0FU;
    const bool broken =
        breakHere && payload && sentBefore && !ts::isDiscontinuity(packet) && counter == expected;
    if (broken) {
        pid.offset = static_cast<std::uint8_t>((pid.offset + 1U) & 0x0FU);
        counter = (counter + 1U) & 0x0FU;
    }
    ts::setContinuityCounter(packet, counter);
    pid.sent = static_cast<std::uint8_t>(counter);
    return broken;
}

} // namespace tessary::sender
