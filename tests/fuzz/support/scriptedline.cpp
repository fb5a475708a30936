// SerialLine without a device, and a clock that only moves where the controller waits. These definitions take
// the place of the controller's own.
#include "support/scriptedline.h"

#include "client/lineerror.h"
#include "client/serialline.h"

#include <atomic>
#include <ctime>
#include <utility>

namespace {

constexpr char silence = '\xFF';

std::string script;
std::string markAnswer; ///< comes before the rest of the script
std::atomic<std::int64_t> passedMs{0};

void pass(tessary::client::Milliseconds time)
{
    passedMs += time.count();
}

/// What comes before the next silence, at most `count` bytes.
std::string take(std::size_t count)
{
    std::string taken = script.substr(0, std::min(count, script.find(silence)));
    script.erase(0, taken.size());
    return taken;
}

/// The instrument answers the mark behind a command when the command's answer is over, and one behind a blank
/// at once: the script has nothing but answers to commands.
void answerMark(std::string_view burst)
{
    using namespace std::string_view_literals;
    constexpr std::string_view question = "\0!0C_L_IX:"sv;
    const std::size_t at = burst.find(question);
    if (at == std::string_view::npos)
        return;
    const std::string digits(burst.substr(at + question.size(), 2));
    const std::string answer = "Service" + std::to_string(std::stoi(digits, nullptr, 16));
    if (burst.front() == ' ')
        markAnswer = answer;
    else
        script.insert(std::min(script.find(silence), script.size()), answer);
}

} // namespace

namespace scriptedline {

void load(std::string answers)
{
    script = std::move(answers);
    markAnswer.clear();
}

} // namespace scriptedline

namespace tessary::client {

SerialLine::SerialLine(std::string path)
    : m_path(std::move(path))
{
}

SerialLine::~SerialLine() = default;

void SerialLine::write(std::string_view bytes, Milliseconds)
{
    if (script.empty())
        throwHungUp();
    answerMark(bytes);
}

std::string SerialLine::readSome(Milliseconds timeout)
{
    if (!markAnswer.empty())
        return std::exchange(markAnswer, {});
    if (script.empty())
        throwHungUp();
    std::string taken = take(std::string::npos);
    if (taken.empty()) {
        script.erase(0, 1);
        pass(timeout);
    }
    return taken;
}

std::string SerialLine::readLine(Milliseconds timeout)
{
    const std::size_t end = script.find('\n');
    if (end == std::string::npos || end > script.find(silence)) {
        readSome(timeout);
        throwTimedOut("a line", timeout);
    }
    return take(end + 1);
}

std::string SerialLine::readExactly(std::size_t count, Milliseconds timeout)
{
    if (script.empty())
        throwHungUp();
    std::string taken = take(count);
    if (taken.size() < count) {
        pass(timeout);
        throwTimedOut(std::to_string(count) + " bytes", timeout);
    }
    return taken;
}

std::string SerialLine::readUntilSilence(Milliseconds first, Milliseconds quiet)
{
    std::string taken = readSome(first);
    pass(quiet);
    return taken;
}

void SerialLine::drain() { }

std::string SerialLine::discardInput()
{
    return {};
}

void SerialLine::throwHungUp() const
{
    throw LineError(LineError::Kind::HungUp, "port " + m_path + " hung up");
}

void SerialLine::throwTimedOut(const std::string& expected, Milliseconds timeout) const
{
    throw LineError(LineError::Kind::TimedOut,
        "waited " + std::to_string(timeout.count()) + " ms for " + expected + " on port " + m_path);
}

} // namespace tessary::client

using SteadyPoint = std::chrono::steady_clock::time_point;
SteadyPoint wrappedNow() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
SteadyPoint wrappedNow()
{
    return SteadyPoint(tessary::client::Milliseconds(passedMs.fetch_add(1)));
}

extern "C" int __wrap_nanosleep(const timespec* time, timespec*);
extern "C" int __wrap_nanosleep(const timespec* time, timespec*)
{
    passedMs += time->tv_sec * 1000 + time->tv_nsec / 1000000;
    return 0;
}
