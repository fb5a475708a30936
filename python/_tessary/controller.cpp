// The commands of the protocol. What each does and gives stands in tessary/controller.py.
#include "client/controller.h"

#include "client/instrumentsettings.h"
#include "client/ipstatus.h"
#include "client/netmask.h"
#include "client/pingreport.h"
#include "client/psi/t2mipacket.h"
#include "client/serverspec.h"
#include "client/softwareupdate.h"
#include "client/streamqueries.h"
#include "client/usageerror.h"
#include "python/_tessary/bindings.h"
#include "python/_tessary/dialogue.h"

#include <algorithm>
#include <iterator>
#include <pybind11/functional.h>
#include <pybind11/stl.h>
#include <string>

namespace tessary::python {

using namespace client;

namespace {

using Class = py::class_<Dialogue>;
using Timeout = std::optional<double>;

/// A method without arguments of its own: the controller's, with a time-out.
template <typename Method> auto plain(Method method)
{
    return [method](Dialogue& dialogue, Timeout timeout) {
        // cppcheck-suppress constParameter ; the method may change it
        return dialogue.ask([&](Controller& controller) { return (controller.*method)(); }, timeout);
    };
}

py::bytes bytesOf(const Bytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

const Request& requestOf(const std::string& word)
{
    const auto* const found = std::find_if(std::begin(request::all), std::end(request::all),
        [&](const Request* request) { return word == request->word; });
    if (found != std::end(request::all))
        return **found;
    std::string words;
    for (const auto* request : request::all)
        words += (words.empty() ? "" : ", ") + std::string(request->word);
    throw UsageError("the protocol has no command \"" + word + "\"", "there are: " + words);
}

StreamServer serverOf(const std::string& text)
{
    return parseServer({text});
}

/// Nothing when there is none.
std::optional<T2miPacket> packetNow(Controller& controller)
{
    const Bytes bytes = controller.t2miFrame();
    return bytes.empty() ? std::nullopt : decodeT2miPacket(bytes);
}

InterfaceSettings settingsOf(
    const std::string& address, const std::string& mask, std::optional<int> vlan, const std::string& ethtool)
{
    InterfaceSettings settings;
    settings.vlan = vlan;
    settings.ethtoolCommand = ethtool;
    settings.dhcp = address.empty();
    if (!settings.dhcp) {
        const InterfaceAddress given = parseAddressAndMask(address, mask);
        settings.address = given.address;
        settings.mask = given.mask;
    }
    return settings;
}

const char* wordOf(SoftwareUpdate::Result result)
{
    using Result = SoftwareUpdate::Result;
    switch (result) {
    case Result::Installed:
        return "installed";
    case Result::NotStarted:
        return "update-not-started";
    case Result::Refused:
        return "update-refused";
    case Result::BytesLost:
        return "update-bytes-lost";
    case Result::Restarted:
        return "update-restarted";
    case Result::Stopped:
        return "interrupted";
    case Result::Unconfirmed:
        break;
    }
    return "update-unconfirmed";
}

/// (word of the result, cause, remedy); the last two empty when installed.
py::tuple update(Dialogue& dialogue, const py::bytes& package, std::size_t bytesPerSecond,
    double installation, const std::function<void(std::size_t)>& progress)
{
    SoftwareUpdate::Settings settings;
    settings.bytesPerSecond = bytesPerSecond;
    settings.answer = milliseconds(dialogue.timeout());
    settings.installation = milliseconds(installation);
    const Bytes bytes = toBytes(package);
    const auto result = dialogue.line()->use([&](SerialLine& line) {
        SoftwareUpdate transfer(line, settings);
        return transfer.run(bytes, [&](std::size_t sent) {
            if (progress)
                progress(sent); // pybind11 takes the GIL for it
        });
    });
    SoftwareUpdate::Explanation explanation;
    if (result != SoftwareUpdate::Result::Installed)
        explanation = SoftwareUpdate::explain(result, settings);
    return py::make_tuple(wordOf(result), explanation.cause, explanation.remedy);
}

void defineLine(Class& type)
{
    type.def(py::init<std::shared_ptr<Line>, double>(), py::arg("line"), py::arg("timeout"))
        .def_property_readonly("line", &Dialogue::line)
        .def_property("timeout", &Dialogue::timeout, &Dialogue::setTimeout)
        .def_property_readonly("starts_seen", &Dialogue::startsSeen)
        .def(
            "ask",
            [](Dialogue& dialogue, const std::string& word, const std::string& argument, Timeout timeout) {
                const Request& request = requestOf(word);
                return py::bytes(dialogue.ask(
                    [&](Controller& controller) { return controller.ask(request, argument); }, timeout));
            },
            py::arg("word"), py::arg("argument"), py::arg("timeout"))
        .def(
            "settle",
            [](Dialogue& dialogue, Timeout timeout) {
                return py::bytes(
                    dialogue.ask([](Controller& controller) { return controller.settle(); }, timeout));
            },
            py::arg("timeout"))
        .def(
            "wait_for_greeting",
            [](Dialogue& dialogue, double timeout) {
                dialogue.ask(
                    [&](Controller& controller) { controller.waitForGreeting(milliseconds(timeout)); });
            },
            py::arg("timeout"));
}

void defineStream(Class& type)
{
    type.def(
            "set_server",
            [](Dialogue& dialogue, const std::string& text, Timeout timeout) {
                const StreamServer server = serverOf(text);
                dialogue.ask([&](Controller& controller) { controller.setServer(server); }, timeout);
            },
            py::arg("server"), py::arg("timeout"))
        .def("scan", plain(&Controller::scan), py::arg("timeout"))
        .def("scan_recording", plain(&Controller::scanRecording), py::arg("timeout"))
        .def(
            "play",
            [](Dialogue& dialogue, int number, Timeout timeout) {
                dialogue.ask([&](Controller& controller) { controller.play(number); }, timeout);
            },
            py::arg("number"), py::arg("timeout"))
        .def("send_stream", plain(&Controller::sendStream), py::arg("timeout"))
        .def(
            "stream_info",
            [](Dialogue& dialogue, Timeout timeout) { return dialogue.ask(&servicesNow, timeout); },
            py::arg("timeout"))
        .def(
            "network", [](Dialogue& dialogue, Timeout timeout) { return dialogue.ask(&networkNow, timeout); },
            py::arg("timeout"))
        .def(
            "program", [](Dialogue& dialogue, Timeout timeout) { return dialogue.ask(&programNow, timeout); },
            py::arg("timeout"))
        .def("player_status", plain(&Controller::playerStatus), py::arg("timeout"))
        .def(
            "t2mi_packet",
            [](Dialogue& dialogue, Timeout timeout) { return dialogue.ask(&packetNow, timeout); },
            py::arg("timeout"));
}

void defineNetwork(Class& type)
{
    type.def("measurement", plain(&Controller::measurement), py::arg("timeout"))
        .def("inter_arrival_times", plain(&Controller::interArrivalTimes), py::arg("timeout"))
        .def("interface", plain(&Controller::interfaceAddress), py::arg("timeout"))
        .def(
            "set_interface",
            [](Dialogue& dialogue, const std::string& address, const std::string& mask,
                std::optional<int> vlan, const std::string& ethtool, Timeout timeout) {
                const InterfaceSettings settings = settingsOf(address, mask, vlan, ethtool);
                dialogue.ask([&](Controller& controller) { controller.setInterface(settings); }, timeout);
            },
            py::arg("address"), py::arg("mask"), py::arg("vlan"), py::arg("ethtool"), py::arg("timeout"))
        .def(
            "ip_status",
            [](Dialogue& dialogue, Timeout timeout) {
                return dialogue.ask(
                    [](Controller& controller) { return parseIpStatus(controller.ipStatus()); }, timeout);
            },
            py::arg("timeout"))
        .def(
            "ping",
            [](Dialogue& dialogue, const std::string& arguments, Timeout timeout) {
                return dialogue.ask(
                    [&](Controller& controller) { return parsePing(controller.ping(arguments)); }, timeout);
            },
            py::arg("arguments"), py::arg("timeout"));
}

void defineMaintenance(Class& type)
{
    type.def(
            "version",
            [](Dialogue& dialogue, Timeout timeout) {
                return dialogue.ask(
                    [](Controller& controller) { return parseVersion(controller.version()); }, timeout);
            },
            py::arg("timeout"))
        .def(
            "run_command",
            [](Dialogue& dialogue, const std::string& command, Timeout timeout) {
                dialogue.ask([&](Controller& controller) { controller.runCommand(command); }, timeout);
            },
            py::arg("command"), py::arg("timeout"))
        .def(
            "run_command_shown",
            [](Dialogue& dialogue, const std::string& command, Timeout timeout) {
                return dialogue.ask(
                    [&](Controller& controller) { return controller.runCommandShown(command); }, timeout);
            },
            py::arg("command"), py::arg("timeout"))
        .def("update", &update, py::arg("package"), py::arg("bytes_per_second"), py::arg("installation"),
            py::arg("progress"));
}

void defineEbs(Class& type)
{
    type.def("ebs_scan", plain(&Controller::ebsScan), py::arg("timeout"))
        .def(
            "ebs_play",
            [](Dialogue& dialogue, int index, Timeout timeout) {
                dialogue.ask([&](Controller& controller) { controller.ebsPlay(index); }, timeout);
            },
            py::arg("index"), py::arg("timeout"))
        .def(
            "ebs_service_name",
            [](Dialogue& dialogue, int index, Timeout timeout) {
                return dialogue.ask(
                    [&](Controller& controller) { return controller.ebsServiceName(index); }, timeout);
            },
            py::arg("index"), py::arg("timeout"))
        .def("ebs_status", plain(&Controller::ebsStatus), py::arg("timeout"))
        .def("ebs_decoder_info", plain(&Controller::ebsDecoderInfo), py::arg("timeout"))
        .def(
            "ebs_audio_level",
            [](Dialogue& dialogue, int level, Timeout timeout) {
                dialogue.ask([&](Controller& controller) { controller.ebsAudioLevel(level); }, timeout);
            },
            py::arg("level"), py::arg("timeout"))
        .def(
            "ebs_version",
            [](Dialogue& dialogue, Timeout timeout) {
                return dialogue.ask(
                    [](Controller& controller) { return parseVersion(controller.ebsVersion()); }, timeout);
            },
            py::arg("timeout"));
}

void defineRecorder(Class& type)
{
    type.def("record", plain(&Controller::record), py::arg("timeout"))
        .def("stop_recording", plain(&Controller::stopRecording), py::arg("timeout"))
        .def("recording_size", plain(&Controller::recordingSize), py::arg("timeout"))
        .def("export_recording", plain(&Controller::exportRecording), py::arg("timeout"))
        .def("start_dab", plain(&Controller::startDab), py::arg("timeout"))
        .def("stop_dab", plain(&Controller::stopDab), py::arg("timeout"))
        .def(
            "dab",
            [](Dialogue& dialogue, const std::string& block, Timeout timeout) {
                return bytesOf(
                    dialogue.ask([&](Controller& controller) { return controller.dab(block); }, timeout));
            },
            py::arg("block"), py::arg("timeout"));
}

} // namespace

void bindController(py::module_& module)
{
    Class type(module, "Dialogue");
    defineLine(type);
    defineStream(type);
    defineNetwork(type);
    defineMaintenance(type);
    defineEbs(type);
    defineRecorder(type);
    py::list words;
    for (const auto* request : request::all)
        words.append(request->word);
    module.attr("COMMANDS") = py::tuple(words);
    module.def(
        "is_miscounted",
        [](const std::string& address, const std::string& mask) {
            return isMiscounted(parseAddressAndMask(address, mask).mask);
        },
        py::arg("address"), py::arg("mask"));
    module.def(
        "server_url", [](const std::string& text) { return serverUrl(serverOf(text)); }, py::arg("server"));
}

} // namespace tessary::python
