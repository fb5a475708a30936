// T2-MI packets and the L1 signalling in them.
#include "client/psi/t2mipacket.h"
#include "client/psi/t2signalling.h"
#include "python/_tessary/bindings.h"
#include "python/_tessary/value.h"

namespace tessary::python {

using namespace client;

namespace {

const char* wordOf(T2miPacket::Timestamp::Kind kind)
{
    switch (kind) {
    case T2miPacket::Timestamp::Kind::Null:
        return "null";
    case T2miPacket::Timestamp::Kind::Relative:
        return "relative";
    case T2miPacket::Timestamp::Kind::Absolute:
        break;
    }
    return "absolute";
}

void bindSignalling(py::module_& module)
{
    using Plp = T2Signalling::Plp;
    Value<Plp>(module, "T2Plp")
        .computed("text", [](const Plp& p) { return textOf(p); })
        .field("id", &Plp::id)
        .field("type", &Plp::type)
        .field("payload", &Plp::payload)
        .field("group", &Plp::group)
        .field("code_rate", &Plp::codeRate)
        .field("modulation", &Plp::modulation)
        .field("rotated", &Plp::rotated)
        .field("mode", &Plp::mode);
    Value<T2Signalling>(module, "T2Signalling")
        .field("type", &T2Signalling::type)
        .field("bandwidth_extended", &T2Signalling::bandwidthExtended)
        .field("preamble", &T2Signalling::preamble)
        .field("transmission_mode", &T2Signalling::transmissionMode)
        .field("future_extension_frames", &T2Signalling::futureExtensionFrames)
        .field("guard_interval", &T2Signalling::guardInterval)
        .field("l1_modulation", &T2Signalling::l1Modulation)
        .field("pilot_pattern", &T2Signalling::pilotPattern)
        .field("cell_id", &T2Signalling::cellId)
        .field("network_id", &T2Signalling::networkId)
        .field("system_id", &T2Signalling::systemId)
        .field("frames_per_superframe", &T2Signalling::framesPerSuperframe)
        .field("symbols_per_frame", &T2Signalling::symbolsPerFrame)
        .field("version", &T2Signalling::version)
        .field("frequencies", &T2Signalling::frequencies)
        .field("plps", &T2Signalling::plps);
}

void bindFrames(py::module_& module)
{
    using Header = T2miPacket::BasebandHeader;
    using Frame = T2miPacket::BasebandFrame;
    Value<Header>(module, "BasebandHeader")
        .field("input", &Header::input)
        .field("single_input", &Header::singleInput)
        .field("constant_coding", &Header::constantCoding)
        .field("input_synchronized", &Header::inputSynchronized)
        .field("null_packets_deleted", &Header::nullPacketsDeleted)
        .field("input_stream", &Header::inputStream)
        .field("mode", &Header::mode)
        .field("user_packet_bits", &Header::userPacketBits)
        .field("data_field_bits", &Header::dataFieldBits)
        .field("sync_distance", &Header::syncDistance);
    Value<Frame>(module, "BasebandFrame")
        .field("frame_index", &Frame::frameIndex)
        .field("plp_id", &Frame::plpId)
        .field("interleaving_frame_start", &Frame::interleavingFrameStart)
        .field("bytes", &Frame::bytes)
        .field("header", &Frame::header);
}

void bindPacket(py::module_& module)
{
    using Timestamp = T2miPacket::Timestamp;
    Value<Timestamp>(module, "T2Timestamp")
        .computed("text", [](const Timestamp& t) { return textOf(t); })
        .computed("kind", [](const Timestamp& t) { return wordOf(t.kind); })
        .field("bandwidth", &Timestamp::bandwidth)
        .field("seconds", &Timestamp::seconds)
        .field("microseconds", &Timestamp::microseconds)
        .field("utc_offset", &Timestamp::utcOffset);
    Value<T2miPacket>(module, "T2miPacket")
        .field("type", &T2miPacket::type)
        .computed("type_name", [](const T2miPacket& p) { return t2miTypeName(p.type); })
        .field("count", &T2miPacket::count)
        .field("superframe_index", &T2miPacket::superframeIndex)
        .field("stream_id", &T2miPacket::streamId)
        .field("payload_bits", &T2miPacket::payloadBits)
        .field("crc_correct", &T2miPacket::crcCorrect)
        .field("baseband_frame", &T2miPacket::basebandFrame)
        .field("signalling", &T2miPacket::signalling)
        .field("timestamp", &T2miPacket::timestamp);
}

} // namespace

void bindT2mi(py::module_& module)
{
    bindSignalling(module);
    bindFrames(module);
    bindPacket(module);
}

} // namespace tessary::python
