// What the instrument tells of itself: version, interface, ping, EBS frames, commands of its shell.
#include "client/controller.h"
#include "client/ebs.h"
#include "client/instrumentsettings.h"
#include "client/ipstatus.h"
#include "client/pingreport.h"
#include "python/_tessary/bindings.h"
#include "python/_tessary/value.h"

namespace tessary::python {

using namespace client;

namespace {

void bindInterface(py::module_& module)
{
    using Traffic = IpStatus::Traffic;
    Value<VersionInfo>(module, "Version")
        .field("software", &VersionInfo::software)
        .field("fpga", &VersionInfo::fpga)
        .field("fpga_configured", &VersionInfo::fpgaConfigured)
        .computed("fpga_built", [](const VersionInfo& v) { return v.fpgaBuilt(); });
    Value<InterfaceAddress>(module, "InterfaceAddress")
        .field("address", &InterfaceAddress::address)
        .field("mask", &InterfaceAddress::mask);
    Value<Traffic>(module, "Traffic")
        .field("packets", &Traffic::packets)
        .field("bytes", &Traffic::bytes)
        .field("errors", &Traffic::errors)
        .field("dropped", &Traffic::dropped)
        .field("overruns", &Traffic::overruns);
    Value<IpStatus>(module, "IpStatus")
        .field("address", &IpStatus::address)
        .field("mask", &IpStatus::mask)
        .field("broadcast", &IpStatus::broadcast)
        .field("ipv6", &IpStatus::ipv6)
        .field("mac", &IpStatus::mac)
        .field("flags", &IpStatus::flags)
        .field("mtu", &IpStatus::mtu)
        .field("received", &IpStatus::received)
        .field("sent", &IpStatus::sent)
        .field("speed_mbps", &IpStatus::speedMbps)
        .field("duplex", &IpStatus::duplex)
        .field("auto_negotiation", &IpStatus::autoNegotiation)
        .field("port", &IpStatus::port)
        .field("link_detected", &IpStatus::linkDetected);
}

void bindPing(py::module_& module)
{
    using Reply = PingReport::Reply;
    using RoundTrip = PingReport::RoundTrip;
    Value<Reply>(module, "PingReply")
        .field("sequence", &Reply::sequence)
        .field("time_to_live", &Reply::timeToLive)
        .field("milliseconds", &Reply::milliseconds);
    Value<RoundTrip>(module, "RoundTrip")
        .field("shortest_ms", &RoundTrip::shortest)
        .field("mean_ms", &RoundTrip::mean)
        .field("longest_ms", &RoundTrip::longest)
        .field("deviation_ms", &RoundTrip::deviation);
    Value<PingReport>(module, "PingReport")
        .field("address", &PingReport::address)
        .field("transmitted", &PingReport::transmitted)
        .field("received", &PingReport::received)
        .field("replies", &PingReport::replies)
        .field("round_trip", &PingReport::roundTrip);
}

void bindEbs(py::module_& module)
{
    Value<EbsStatus>(module, "EbsStatus")
        .field("programs", &EbsStatus::programs)
        .field("selected", &EbsStatus::selected);
    Value<EbsDecoderInfo>(module, "EbsDecoderInfo")
        .field("video_code", &EbsDecoderInfo::videoCode)
        .computed("video", [](const EbsDecoderInfo& i) { return ebsVideoName(i.videoCode); })
        .field("width", &EbsDecoderInfo::width)
        .field("height", &EbsDecoderInfo::height)
        .field("audio_code", &EbsDecoderInfo::audioCode)
        .computed("audio", [](const EbsDecoderInfo& i) { return ebsAudioName(i.audioCode); });
    Value<CommandOutcome>(module, "CommandOutcome")
        .computed("output", [](const CommandOutcome& o) { return toBytes(o.output); })
        .field("status", &CommandOutcome::status);
}

} // namespace

void bindReports(py::module_& module)
{
    bindInterface(module);
    bindPing(module);
    bindEbs(module);
}

} // namespace tessary::python
