#include "capture_flow.h"

#include <algorithm>
#include <cstdio>

#include "capture_reader.h"
#include "options.h"
#include "ts_file.h"

namespace tessary::sender {

namespace {

void add(std::vector<CaptureFlow>& flows, const CapturedDatagram& datagram)
{
    const auto rtpBytes = rtpBytesOf(datagram.data, datagram.size);
    auto flow = std::find_if(flows.begin(), flows.end(), [&](const CaptureFlow& known) {
        return known.address == datagram.address && known.port == datagram.port;
    });
    if (flow == flows.end()) {
        if (!rtpBytes)
            return;
        flow = flows.insert(flows.end(), CaptureFlow());
        flow->address = datagram.address;
        flow->port = datagram.port;
        flow->rtp = *rtpBytes != 0;
        flow->vlanBytes = datagram.vlanBytes;
        flow->firstNs = flow->lastNs = datagram.timeNs;
    }
    ++flow->datagrams;
    flow->tsBytes += datagram.size - rtpBytes.value_or(0);
    flow->cut += datagram.isCut ? 1 : 0;
    flow->lastNs = std::max(flow->lastNs, datagram.timeNs);
}

std::string listOf(const std::vector<CaptureFlow>& flows)
{
    std::string list;
    for (const CaptureFlow& flow : flows) {
        char figures[100];
        std::snprintf(figures, sizeof figures, " (%s, %llu datagrams, %.3f Mbit/s)", flow.rtp ? "rtp" : "udp",
            static_cast<unsigned long long>(flow.datagrams), flow.tsBitRate() / 1e6);
        list += "\n  --flow " + flow.name() + figures;
    }
    return list;
}

} // namespace

std::int64_t CaptureFlow::passNs() const
{
    const std::int64_t span = lastNs - firstNs;
    return datagrams > 1 ? span + span / static_cast<std::int64_t>(datagrams - 1) : 0;
}

double CaptureFlow::tsBitRate() const
{
    return passNs() > 0 ? static_cast<double>(tsBytes) * 8e9 / static_cast<double>(passNs()) : 0;
}

std::string CaptureFlow::name() const
{
    char text[40];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u:%u", address >> 24, address >> 16 & 255U,
        address >> 8 & 255U, address & 255U, unsigned{port});
    return text;
}

std::vector<CaptureFlow> findFlows(const std::string& path)
{
    CaptureReader reader(path);
    std::vector<CaptureFlow> flows;
    while (const auto datagram = reader.next())
        add(flows, *datagram);
    if (flows.empty() && reader.fragments() != 0)
        throw StreamError(path
            + ": its UDP datagrams are cut into IP fragments, which are not put together; "
              "have the stream sent with 7 packets a datagram");
    if (flows.empty())
        throw StreamError(path
            + ": no UDP datagram in it carries a transport stream; "
              "capture the stream itself (tcpdump -w FILE udp port PORT)");
    return flows;
}

CaptureFlow chooseFlow(
    const std::string& path, const std::vector<CaptureFlow>& flows, const std::string& name)
{
    const auto flow = std::find_if(flows.begin(), flows.end(),
        [&](const CaptureFlow& one) { return name.empty() ? flows.size() == 1 : one.name() == name; });
    if (flow == flows.end() && name.empty())
        throw UsageError(path + ": several transport streams are in it; give one of" + listOf(flows));
    if (flow == flows.end())
        throw UsageError(path + ": no transport stream to " + name + " is in it; there is" + listOf(flows));
    if (flow->cut != 0)
        throw StreamError(path + ": " + std::to_string(flow->cut) + " of " + std::to_string(flow->datagrams)
            + " datagrams were not captured whole; capture again with tcpdump -s 0");
    if (flow->tsBitRate() <= 0)
        throw StreamError(path + ": one moment is no stream; capture it for longer");
    return *flow;
}

} // namespace tessary::sender
