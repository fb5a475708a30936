#pragma once

#include "client/controller.h"
#include "client/serialline.h"
#include "client/tessaryctl/memory.h"

#include <functional>
#include <iosfwd>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace tessary::ctl {

using Json = nlohmann::ordered_json;

/// What every sub-command takes.
struct Options
{
    std::string port; ///< empty: the default
    double timeoutSeconds = 0; ///< 0: the sub-command's own
    bool json = false;
};

/// The port that is used when none is given: the environment's TESSARY_PORT, else the virtual instrument's.
std::string defaultPort();

/// A program that carries command lines out for others, in place of a person at a terminal. Such lines reach
/// neither this machine's files nor another port, and none of them waits for keys.
struct Host
{
    std::ostream& out; ///< instead of standard output
    std::function<void(const std::string& text)> note; ///< a remark, instead of standard error
};

/// The line to the instrument, opened when it is first needed and kept, so that the shell's commands share
/// it.
class Session
{
public:
    /// A controller on `port` that waits `timeout` for answers. Throws LineError.
    client::Controller& open(const std::string& port, client::Milliseconds timeout);
    client::SerialLine& line() { return *m_line; }
    /// Of the port that was opened last.
    InstrumentMemory& memory() { return *m_memory; }
    /// Forgets the line, after it hung up.
    void close();
    /// Shows what goes over the line that is opened next.
    void tap(client::SerialLine::Tap tap) { m_tap = std::move(tap); }

private:
    client::SerialLine::Tap m_tap;
    std::unique_ptr<client::SerialLine> m_line;
    std::unique_ptr<InstrumentMemory> m_memory;
    std::unique_ptr<client::Controller> m_controller;
};

/// What a sub-command works with. Used from one thread.
class Context
{
public:
    /// Both are borrowed. Without `host` for a person: standard output, standard error.
    explicit Context(Session& session, const Host* host = nullptr)
        : m_session(session)
        , m_host(host)
    {
    }

    Options options;

    /// The controller, its time-out that of --timeout or `usualSeconds`. Another one each time: those before
    /// are gone.
    client::Controller& controller(double usualSeconds = 10);
    /// The bare line of the same port.
    client::SerialLine& line(double usualSeconds = 10);
    /// Forgets the line, so that the next controller() opens the port anew.
    void closeLine() { m_session.close(); }
    client::Milliseconds timeout(double usualSeconds) const;
    bool json() const { return options.json; }
    /// What is known of the instrument's settings; once the controller has been asked for.
    InstrumentMemory& memory() { return m_session.memory(); }

    /// To out(): one JSON object, indented, with "time" (now, unless it has one) in front.
    void print(const Json& value);
    /// The same in one line, for objects that keep coming; then print() keeps to lines, too.
    void printLine(const Json& value);
    /// Standard output, or the host's.
    std::ostream& out() const;
    /// A remark for the person, on standard error, so that it does not get into the data.
    void note(const std::string& text) const;
    /// A program carries the line out for others.
    bool hosted() const { return m_host != nullptr; }

private:
    Session& m_session;
    const Host* m_host;
    bool m_lines = false; ///< objects are printed one a line
};

} // namespace tessary::ctl
