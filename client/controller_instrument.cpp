// Measurement, interface, recorder, DAB, EBS: the part of the controller that has to do with the instrument
// rather than with a stream's tables.
#include "client/answererror.h"
#include "client/controller.h"

#include <charconv>

namespace tessary::client {

namespace {

constexpr std::size_t dabBlockSize = 117;

std::string withoutLineFeed(std::string line)
{
    if (!line.empty() && line.back() == '\n')
        line.pop_back();
    return line;
}

} // namespace

std::optional<Measurement> Controller::measurement()
{
    const std::string answer = ask(request::measurement);
    if (answer == notConnectedLine)
        return std::nullopt;
    return decodeMeasurement(answer);
}

std::optional<std::vector<std::int64_t>> Controller::interArrivalTimes()
{
    const std::string answer = ask(request::interArrivalTimes);
    if (answer == notConnectedLine)
        return std::nullopt;
    return parseInterArrivalTimes(answer);
}

std::optional<InterfaceAddress> Controller::interfaceAddress()
{
    const std::string answer = ask(request::interfaceAddress);
    if (answer == notConnectedLine)
        return std::nullopt;
    const std::string text = withoutLineFeed(answer);
    const std::size_t blank = text.find(' ');
    if (blank == std::string::npos)
        throw AnswerError("no interface address and mask: \"" + text + "\"");
    return InterfaceAddress{text.substr(0, blank), text.substr(blank + 1)};
}

void Controller::setInterface(const InterfaceSettings& settings)
{
    ask(request::setInterface, settings.text());
}

std::string Controller::ipStatus()
{
    return ask(request::ipStatus);
}

std::string Controller::ping(const std::string& arguments)
{
    return ask(request::ping, " " + arguments);
}

void Controller::runCommand(const std::string& command)
{
    ask(request::command, command);
}

void Controller::record()
{
    ask(request::record);
}

void Controller::stopRecording()
{
    ask(request::stopRecording);
}

std::uint64_t Controller::recordingSize()
{
    constexpr std::string_view before = "reclist file:";
    constexpr std::string_view after = " Bytes";
    const std::string answer = ask(request::recordingSize);
    std::uint64_t size = 0;
    if (answer.size() > before.size() + after.size() && answer.compare(0, before.size(), before) == 0) {
        const char* const end = answer.data() + answer.size();
        const auto [next, error] = std::from_chars(answer.data() + before.size(), end, size);
        if (error == std::errc() && std::string_view(next, static_cast<std::size_t>(end - next)) == after)
            return size;
    }
    throw AnswerError("no recording size: \"" + answer + "\"");
}

void Controller::exportRecording()
{
    const std::string answer = ask(request::exportRecording);
    if (answer != "PVR_export_ok\n")
        throw AnswerError("no acknowledgement of the export: \"" + withoutLineFeed(answer) + "\"");
}

void Controller::startDab()
{
    ask(request::startDab);
}

void Controller::stopDab()
{
    ask(request::stopDab);
}

Bytes Controller::dab(const std::string& block)
{
    const std::string_view word = request::dab.word;
    if (block.size() > dabBlockSize || block.compare(0, word.size(), word) != 0)
        throw std::invalid_argument("a DAB block begins with \"dab\" and has at most 117 bytes");
    return toBytes(ask(request::dab, block.substr(word.size())));
}

void Controller::ebsScan()
{
    ask(request::ebsScan);
}

std::string Controller::askFixed(const Request& request, std::string_view argument, std::string_view expected)
{
    std::string answer = ask(request, argument);
    if (answer != expected)
        throw AnswerError("expected \"" + std::string(expected) + "\", got \"" + answer + "\"");
    return answer;
}

void Controller::ebsPlay(int index)
{
    askFixed(request::ebsPlay, ebsIndex(index), "*0C_d.SX");
    settle(); // the acknowledgement comes before anything is done
}

std::string Controller::ebsServiceName(int index)
{
    return ask(request::ebsServiceName, ebsIndex(index));
}

EbsStatus Controller::ebsStatus()
{
    return parseEbsStatus(ask(request::ebsStatus));
}

EbsDecoderInfo Controller::ebsDecoderInfo()
{
    return parseEbsDecoderInfo(ask(request::ebsInfo));
}

void Controller::ebsAudioLevel(int level)
{
    askFixed(request::ebsAudioLevel, ebsIndex(level), "*07_o.$");
}

std::string Controller::ebsVersion()
{
    return withoutLineFeed(ask(request::ebsVersion));
}

} // namespace tessary::client
