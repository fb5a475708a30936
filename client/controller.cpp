#include "client/controller.h"

#include "client/lineerror.h"
#include "client/sections.h"
#include "client/t2mipacket.h"

#include <algorithm>
#include <thread>

namespace tessary::client {

namespace {

constexpr std::string_view sdtMark = "<SDT>";
constexpr std::string_view versionMark = "SV: ";
constexpr std::size_t statusWordSize = 7; // "running", "stopped"

const char* protocolWord(StreamServer::Protocol protocol)
{
    switch (protocol) {
    case StreamServer::Protocol::Udp:
        return "UDP";
    case StreamServer::Protocol::Rtp:
        return "RTP";
    case StreamServer::Protocol::UdpT2mi:
        return "UDP_T2MI";
    case StreamServer::Protocol::RtpT2mi:
        return "RTP_T2MI";
    }
    return "";
}

} // namespace

std::string StreamServer::text() const
{
    std::string text = std::string(protocolWord(protocol)) + " " + address + " " + std::to_string(port);
    if (protocol == Protocol::UdpT2mi || protocol == Protocol::RtpT2mi)
        text += " " + std::to_string(t2miPid) + " " + std::to_string(t2miPlpId);
    return text;
}

Controller::Controller(SerialLine& line, Patience patience)
    : m_line(line)
    , m_patience(patience)
{
}

void Controller::waitForGreeting(Milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const std::string_view expected = greeting;
    std::string line;
    while (line.size() < expected.size()
        || line.compare(line.size() - expected.size(), expected.size(), expected) != 0) {
        const auto left = std::chrono::ceil<Milliseconds>(deadline - std::chrono::steady_clock::now());
        line = m_line.readLine(std::max(left, Milliseconds(0)));
    }
}

void Controller::send(const Request& request, std::string_view argument)
{
    std::string command = request.word;
    command.append(argument).push_back('\n');
    m_line.write(command);
}

std::string Controller::settle()
{
    // The first question may arrive together with the command before it and be dropped, so it is asked again,
    // and the answers to questions that were only delayed are read off the line.
    constexpr Milliseconds pause{25}; // several of the daemon's polls of 5 ms
    constexpr Milliseconds interval{700};
    const auto deadline = std::chrono::steady_clock::now() + m_patience.blocked;
    std::string received;
    for (;;) {
        std::this_thread::sleep_for(pause);
        send(request::version);
        received += m_line.readUntilSilence(interval, Milliseconds(30));
        const std::size_t mark = received.find(versionMark);
        if (mark != std::string::npos && received.find('\n', mark) != std::string::npos)
            return received.substr(0, mark);
        if (std::chrono::steady_clock::now() > deadline)
            throw LineError(LineError::Kind::TimedOut,
                "the instrument on " + m_line.path()
                    + " does not answer \"version?\"; switch it off and on, or restart the virtual "
                      "instrument");
    }
}

std::string Controller::complete(std::string received, std::size_t size)
{
    if (received.size() < size)
        received += m_line.readExactly(size - received.size(), m_patience.firstByte);
    return received;
}

std::string Controller::readStatusWord()
{
    std::string word = m_line.readSome(m_patience.absent);
    return word.empty() ? word : complete(std::move(word), statusWordSize);
}

std::string Controller::readSection()
{
    constexpr std::size_t headerSize = 3;
    std::string received = m_line.readSome(m_patience.absent);
    if (received.empty())
        return received;
    received = complete(std::move(received), headerSize);
    return complete(received, sectionSize(toBytes(received), 0));
}

std::string Controller::readT2miPacket()
{
    constexpr std::size_t headerSize = 6;
    std::string received = m_line.readSome(m_patience.absent);
    if (received.empty())
        return received;
    received = complete(std::move(received), headerSize);
    return complete(received, t2miPacketSize(toBytes(received)));
}

std::string Controller::readValues(std::size_t size)
{
    std::string received = m_line.readExactly(notConnectedLine.size(), m_patience.firstByte);
    return received == notConnectedLine ? received : complete(std::move(received), size);
}

std::string Controller::readAnswer(const Request& request)
{
    switch (request.answer) {
    case AnswerEnd::None:
        return {};
    case AnswerEnd::LineFeed:
        return m_line.readLine(m_patience.firstByte);
    case AnswerEnd::Words:
        return readStatusWord();
    case AnswerEnd::Fixed: {
        std::string received =
            m_line.readSome(request.mayBeSilent ? m_patience.absent : m_patience.firstByte);
        if (received.empty() && request.mayBeSilent)
            return received;
        return complete(std::move(received), request.size);
    }
    case AnswerEnd::Section:
        return readSection();
    case AnswerEnd::T2miPacket:
        return readT2miPacket();
    case AnswerEnd::Values:
        return readValues(request.size);
    case AnswerEnd::Silence:
        return m_line.readUntilSilence(
            request.mayBeSilent ? m_patience.absent : m_patience.firstByte, m_patience.quiet);
    }
    return {};
}

std::string Controller::ask(const Request& request, std::string_view argument)
{
    m_line.discardInput();
    send(request, argument);
    if (request.answer == AnswerEnd::None) {
        settle();
        return {};
    }
    std::string answer = readAnswer(request);
    if (!answer.empty())
        return answer;
    if (!request.mayBeSilent)
        throw LineError(LineError::Kind::TimedOut,
            "no answer to \"" + std::string(request.word) + "\" on port " + m_line.path()
                + "; check that the instrument is on, or raise the time-out");
    return settle(); // silent, or only late, or gone: that it answers now tells
}

std::string Controller::version()
{
    std::string line = ask(request::version);
    line.pop_back();
    return line;
}

void Controller::setServer(const StreamServer& server)
{
    ask(request::setServer, server.text());
}

void Controller::scan()
{
    ask(request::scan);
}

void Controller::scanRecording()
{
    ask(request::scanRecording);
}

void Controller::play(int programNumber)
{
    ask(request::play, std::to_string(programNumber));
}

void Controller::sendStream()
{
    ask(request::sendStream);
}

Bytes Controller::streamInfo()
{
    const std::string answer = ask(request::streamInfo);
    if (answer.compare(0, sdtMark.size(), sdtMark) != 0)
        return {};
    return toBytes(answer.substr(sdtMark.size()));
}

Bytes Controller::networkInformation()
{
    return toBytes(ask(request::networkInformation));
}

Bytes Controller::programMap()
{
    return toBytes(ask(request::programMap));
}

std::string Controller::playerStatus()
{
    return ask(request::playerStatus);
}

Bytes Controller::t2miFrame()
{
    return toBytes(ask(request::t2miFrame));
}

} // namespace tessary::client
