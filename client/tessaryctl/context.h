#pragma once

#include "client/controller.h"
#include "client/serialline.h"
#include "client/tessaryctl/memory.h"

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

private:
    std::unique_ptr<client::SerialLine> m_line;
    std::unique_ptr<InstrumentMemory> m_memory;
    std::unique_ptr<client::Controller> m_controller;
};

/// What a sub-command works with. Used from the main thread.
class Context
{
public:
    explicit Context(Session& session)
        : m_session(session)
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

    /// Standard output: one JSON object, indented, with "time" (now, unless it has one) in front.
    void print(const Json& value);
    /// The same in one line, for objects that keep coming; then print() keeps to lines, too.
    void printLine(const Json& value);
    std::ostream& out() const;
    /// A remark for the person, on standard error, so that it does not get into the data.
    void note(const std::string& text) const;

private:
    Session& m_session;
    bool m_lines = false; ///< objects are printed one a line
};

} // namespace tessary::ctl
