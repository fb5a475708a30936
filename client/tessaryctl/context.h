#pragma once

#include "client/controller.h"
#include "client/serialline.h"

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
    /// Forgets the line, after it hung up.
    void close();

private:
    std::unique_ptr<client::SerialLine> m_line;
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

    /// The controller, its time-out that of --timeout or `usualSeconds`.
    client::Controller& controller(double usualSeconds = 10);
    /// The bare line of the same port.
    client::SerialLine& line(double usualSeconds = 10);
    /// Forgets the line, so that the next controller() opens the port anew.
    void closeLine() { m_session.close(); }
    client::Milliseconds timeout(double usualSeconds) const;
    bool json() const { return options.json; }

    /// Standard output: one JSON value, indented; or in one line for values that keep coming.
    void print(const Json& value) const;
    void printLine(const Json& value) const;
    std::ostream& out() const;
    /// A remark for the person, on standard error, so that it does not get into the data.
    void note(const std::string& text) const;

private:
    Session& m_session;
};

} // namespace tessary::ctl
