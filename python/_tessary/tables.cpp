// Services, programs and network of a stream, as the tables tell them.
#include "client/presentation.h"
#include "client/psi/conditionalaccess.h"
#include "client/psi/delivery.h"
#include "client/psi/languages.h"
#include "client/psi/mpegtsnames.h"
#include "client/psi/servicetext.h"
#include "client/psi/streamkind.h"
#include "client/streamtables.h"
#include "python/_tessary/bindings.h"
#include "python/_tessary/elementarystream.h"
#include "python/_tessary/value.h"

namespace tessary::python {

using namespace client;

namespace {

const char* wordOf(StreamKind::Medium medium)
{
    switch (medium) {
    case StreamKind::Medium::Picture:
        return "picture";
    case StreamKind::Medium::Sound:
        return "sound";
    case StreamKind::Medium::Other:
        break;
    }
    return "other";
}

void bindServices(py::module_& module)
{
    using Service = ServiceDescription::Service;
    Value<Service>(module, "Service")
        .field("id", &Service::id)
        .field("name", &Service::name)
        .field("provider", &Service::provider)
        .field("type", &Service::type)
        .computed("type_name", [](const Service& s) { return serviceTypeName(s.type); })
        .computed("radio", [](const Service& s) { return isRadio(s.type); })
        .computed("running_status", [](const Service& s) { return runningStatusName(s.runningStatus); })
        .field("scrambled", &Service::scrambled)
        .field("eit_schedule", &Service::eitSchedule)
        .field("eit_present_following", &Service::eitPresentFollowing);
    Value<ServiceTable>(module, "ServiceTable")
        .computed("transport_stream_id", [](const ServiceTable& t) { return t.services.transportStreamId; })
        .computed("original_network_id", [](const ServiceTable& t) { return t.services.originalNetworkId; })
        .computed("services", [](const ServiceTable& t) { return t.services.services; })
        .field("complete", &ServiceTable::complete);
}

void bindNetwork(py::module_& module)
{
    using Listed = NetworkInformation::ListedService;
    using Stream = NetworkInformation::TransportStream;
    Value<Delivery>(module, "Delivery")
        .computed("text", [](const Delivery& d) { return textOf(d); })
        .field("system", &Delivery::system)
        .field("frequencies", &Delivery::frequencies)
        .field("modulation", &Delivery::modulation)
        .field("bandwidth", &Delivery::bandwidth)
        .field("symbol_rate", &Delivery::symbolRate)
        .field("code_rate", &Delivery::codeRate)
        .field("guard_interval", &Delivery::guardInterval)
        .field("transmission_mode", &Delivery::transmissionMode)
        .field("polarization", &Delivery::polarization)
        .field("orbital_position", &Delivery::orbitalPosition)
        .field("roll_off", &Delivery::rollOff)
        .field("plp_id", &Delivery::plpId)
        .field("system_id", &Delivery::systemId)
        .field("input_stream", &Delivery::inputStream);
    Value<LogicalChannel>(module, "LogicalChannel")
        .field("service_id", &LogicalChannel::serviceId)
        .field("number", &LogicalChannel::number)
        .field("visible", &LogicalChannel::visible)
        .field("simulcast", &LogicalChannel::simulcast);
    Value<Listed>(module, "ListedService")
        .field("service_id", &Listed::serviceId)
        .field("type", &Listed::type);
    Value<Stream>(module, "TransportStream")
        .field("transport_stream_id", &Stream::transportStreamId)
        .field("original_network_id", &Stream::originalNetworkId)
        .field("services", &Stream::services)
        .computed("deliveries", [](const Stream& s) { return deliveriesOf(s.descriptors); })
        .computed("logical_channels", [](const Stream& s) { return logicalChannelsOf(s.descriptors); })
        .field("descriptors", &Stream::descriptors);
    Value<NetworkTable>(module, "NetworkTable")
        .computed("network_id", [](const NetworkTable& t) { return t.network.networkId; })
        .computed("name", [](const NetworkTable& t) { return t.network.networkName; })
        .computed("transport_streams", [](const NetworkTable& t) { return t.network.transportStreams; })
        .field("complete", &NetworkTable::complete);
}

void bindPrograms(py::module_& module)
{
    Value<Descriptor>(module, "Descriptor")
        .field("tag", &Descriptor::tag)
        .computed("name", [](const Descriptor& d) { return descriptorName(d.tag); })
        .field("data", &Descriptor::data);
    Value<Language>(module, "Language").field("code", &Language::code).field("use", &Language::use);
    Value<ConditionalAccess>(module, "ConditionalAccess")
        .field("system_id", &ConditionalAccess::systemId)
        .computed("system_name", [](const ConditionalAccess& c) { return conditionalAccessName(c.systemId); })
        .field("pid", &ConditionalAccess::pid);
    Value<ElementaryStream>(module, "ElementaryStream")
        .computed("pid", [](const ElementaryStream& s) { return s.stream.pid; })
        .computed("type", [](const ElementaryStream& s) { return s.stream.type; })
        .computed("medium", [](const ElementaryStream& s) { return wordOf(s.kind.medium); })
        .computed("text", [](const ElementaryStream& s) { return s.kind.text; })
        .computed("codec", [](const ElementaryStream& s) { return s.kind.codec; })
        .computed("languages", [](const ElementaryStream& s) { return languagesOf(s.stream.descriptors); })
        .computed("descriptors", [](const ElementaryStream& s) { return s.stream.descriptors; });
    Value<ProgramMap>(module, "Program")
        .field("number", &ProgramMap::programNumber)
        .computed("pcr_pid",
            [](const ProgramMap& p) {
                return p.pcrPid != ProgramMap::noPcr ? std::optional(p.pcrPid) : std::nullopt;
            })
        .computed("streams", &elementaryStreamsOf)
        .computed("conditional_access", &conditionalAccessOf)
        .field("descriptors", &ProgramMap::descriptors);
}

void bindPresentation(py::module_& module)
{
    using Part = Presentation::Part;
    Value<Part>(module, "PresentationPart")
        .computed("state", [](const Part& p) { return client::wordOf(p.state); })
        .field("codec", &Part::codec);
    Value<Presentation>(module, "Presentation")
        .computed("text", [](const Presentation& p) { return textOf(p); })
        .field("picture", &Presentation::picture)
        .field("sound", &Presentation::sound)
        .field("width", &Presentation::width)
        .field("height", &Presentation::height)
        .field("radio", &Presentation::radio)
        .computed("scrambled", [](const Presentation& p) { return client::wordOf(p.scrambling); });
    module.def(
        "presentation_of",
        [](const ProgramMap& program, const std::optional<EbsDecoderInfo>& told,
            const ServiceDescription::Service* service) { return presentationOf(program, told, service); },
        py::arg("program"), py::arg("told"), py::arg("service"));
    module.def("may_tell_more", &mayTellMore, py::arg("program"), py::arg("told"));
}

} // namespace

std::vector<ElementaryStream> elementaryStreamsOf(const ProgramMap& program)
{
    std::vector<ElementaryStream> streams;
    for (const auto& stream : program.streams)
        streams.push_back({stream, kindOf(program, stream)});
    return streams;
}

void bindTables(py::module_& module)
{
    bindServices(module);
    bindNetwork(module);
    bindPrograms(module);
    bindPresentation(module);
    module.def("same_name", &sameName, py::arg("one"), py::arg("other"));
}

} // namespace tessary::python
