#include "client/controller.h"

#include "client/endmark.h"
#include "client/lineerror.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <random>
#include <stdexcept>

namespace tessary::client {

namespace {

constexpr std::string_view sdtMark = "<SDT>";

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

[[noreturn]] void throwRestarted(std::string_view word)
{
    throw LineError(LineError::Kind::TimedOut,
        "the instrument restarted during \"" + std::string(word) + "\"; give the command again");
}

/// In single quotes for the shell.
std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (const char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

/// Four hexadecimal digits.
std::string newTag()
{
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04x", std::random_device{}() & 0xFFFFU);
    return text.data();
}

} // namespace

std::string StreamServer::text() const
{
    std::string text = std::string(protocolWord(protocol)) + " " + address + " " + std::to_string(port);
    if (protocol == Protocol::UdpT2mi || protocol == Protocol::RtpT2mi)
        text += " " + std::to_string(t2miPid) + " " + std::to_string(t2miPlpId);
    return text;
}

Controller::Controller(SerialLine& line, Patience patience, CommandWatcher* watcher)
    : m_line(line)
    , m_patience(patience)
    , m_watcher(watcher)
{
}

void Controller::waitForGreeting(Milliseconds timeout)
{
    m_inStep = false;
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
    m_inStep = false;
    m_line.write(command);
}

std::string Controller::settle()
{
    // What lies unread before the mark may end anywhere: the blank ends it, and harms no command.
    std::string received = askMarked(" ");
    while (noteGreeting(received)) // a start empties the line, the mark with the rest
        received = askMarked(" ");
    m_inStep = true;
    return received;
}

std::string Controller::askMarked(const std::string& command, const std::string& ending)
{
    constexpr std::size_t longestBurst = 640;
    const EndMark mark = EndMark::next();
    const std::string burst = command + mark.question();
    if (burst.size() > longestBurst)
        throw std::invalid_argument("the instrument takes commands of at most "
            + std::to_string(longestBurst - mark.question().size()) + " bytes");
    m_line.write(burst);
    return readUntil(ending + mark.answer());
}

std::string Controller::readUntil(const std::string& ending)
{
    const auto endsWith = [](const std::string& text, const std::string& end) {
        return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
    };
    std::string received;
    while (!endsWith(received, ending)) {
        const std::string more = m_line.readSome(m_patience.blocked);
        if (more.empty())
            throw LineError(LineError::Kind::TimedOut,
                "no answer from the instrument on port " + m_line.path() + " within "
                    + std::to_string(m_patience.blocked.count())
                    + " ms; check that it is on, or raise the time-out; if it stays so, switch it off and "
                      "on, "
                      "or restart the virtual instrument");
        received += more;
        if (endsWith(received, greeting)) // nothing more comes to what was asked before a start
            return received;
    }
    received.resize(received.size() - ending.size());
    return received;
}

std::string Controller::complete(std::string received, std::size_t size)
{
    if (received.size() < size)
        received += m_line.readExactly(size - received.size(), m_patience.firstByte);
    return received;
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
    case AnswerEnd::Mark:
        break;
    case AnswerEnd::LineFeed:
        return m_line.readLine(m_patience.firstByte);
    case AnswerEnd::Fixed: {
        std::string received =
            m_line.readSome(request.mayBeSilent ? m_patience.absent : m_patience.firstByte);
        if (received.empty() && request.mayBeSilent)
            return settle(); // silent, or only late: that it answers now tells
        return complete(std::move(received), request.size);
    }
    case AnswerEnd::Values:
        return readValues(request.size);
    }
    return {};
}

bool Controller::noteGreeting(const std::string& received)
{
    const bool found = received.find(greeting) != std::string::npos;
    if (found && m_watcher != nullptr)
        m_watcher->greeted();
    return found;
}

void Controller::getInStep()
{
    if (noteGreeting(m_line.discardInput()))
        m_inStep = false;
    if (!m_inStep)
        settle();
}

std::optional<std::string> Controller::askOnce(const Request& request, std::string_view argument)
{
    getInStep();
    m_inStep = false; // until the answer is there
    std::string answer;
    if (request.answer == AnswerEnd::None || request.answer == AnswerEnd::Mark) {
        answer = askMarked(request.word + std::string(argument));
    } else {
        send(request, argument);
        answer = readAnswer(request);
    }
    if (noteGreeting(answer))
        return std::nullopt;
    m_inStep = true;
    return answer;
}

std::string Controller::askUntilAnswered(const Request& request, std::string_view argument)
{
    constexpr int attempts = 2; // a daemon that starts over and over is to be heard of
    const std::string_view word = request.word;
    for (int i = 0; i < attempts; ++i) {
        if (auto answer = askOnce(request, argument))
            return *std::move(answer);
        if (word.back() != '?')
            break; // it may have had its effect
    }
    throwRestarted(word);
}

std::string Controller::ask(const Request& request, std::string_view argument)
{
    const std::string command = request.word + std::string(argument);
    const auto tell = [&](bool surely) {
        if (m_watcher != nullptr)
            m_watcher->carriedOut(command, surely);
    };
    try {
        std::string answer = askUntilAnswered(request, argument);
        tell(true);
        return answer;
    } catch (const LineError&) {
        tell(false);
        throw;
    }
}

CommandOutcome Controller::runCommandShown(const std::string& command)
{
    if (command.find_first_of(std::string("\0\n", 2)) != std::string::npos)
        throw std::invalid_argument("a command is one line");
    constexpr const char* ownEnd = ">/dev/ttymxc1"; // the line's device at the instrument
    const std::string tag = newTag();
    const std::string word = request::command.word;
    getInStep();
    m_inStep = false;
    std::string told = askMarked(word + "sh -c " + quoted(command) + " </dev/null " + ownEnd
            + " 2>&1; printf '[%d:" + tag + "]' $? " + ownEnd,
        ":" + tag + "]");
    const std::size_t mark = told.rfind('[');
    int status = 0;
    if (mark == std::string::npos
        || std::from_chars(told.data() + mark + 1, told.data() + told.size(), status).ptr
            != told.data() + told.size()) {
        noteGreeting(told);
        throwRestarted(word);
    }
    m_inStep = true;
    told.resize(mark);
    return {std::move(told), status};
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
