#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace tessary::ctl {

using Json = nlohmann::ordered_json;

/// How the program ends; the man page and `tessaryctl --help` list the same.
enum class ExitCode {
    Success = 0,
    Internal = 1, ///< an error of the program itself
    Usage = 2, ///< wrong arguments
    NoInstrument = 3, ///< the port can not be opened
    TimedOut = 4, ///< no answer in time
    HungUp = 5, ///< the port hung up in the middle
    Nothing = 6, ///< the instrument answers, but has nothing of what was asked for
    NoLink = 7, ///< the instrument's Ethernet has no link
    BadAnswer = 8, ///< an answer that is damaged or not understood
    LocalFile = 9, ///< a file on this machine can not be read or written, or is none that fits
    CardFull = 10, ///< the instrument's memory card has no room for more of the recording
    WouldDestroy = 11, ///< not done: it would destroy the recording
    CommandFailed = 12, ///< command --output: the command on the instrument ended with another status than 0
    UpdateNotStarted = 20, ///< the instrument did not take up the update
    UpdateRefused = 21, ///< checksum wrong, or no room for the file on the instrument
    UpdateBytesLost = 22, ///< the instrument waited in vain for the rest of the package
    UpdateRestarted = 23, ///< the instrument restarted in the middle
    UpdateUnconfirmed = 24, ///< everything was sent, and no answer came in time
    LimitCrossed = 30, ///< log: a limit was crossed
    Interrupted = 130, ///< ended by Ctrl-C, SIGTERM or SIGHUP before its time
};

/// The same as a word, "kind" of an error under --json: "timed-out", "no-link".
const char* wordOf(ExitCode code);

/// Ends a sub-command: what went wrong, and what the person at the bench can do about it.
class Failure : public std::runtime_error
{
public:
    /// `details`: an object whose members stand beside "error" under --json.
    Failure(ExitCode code, const std::string& cause, std::string remedy = {}, Json details = {})
        : std::runtime_error(cause)
        , m_code(code)
        , m_remedy(std::move(remedy))
        , m_details(std::make_shared<const Json>(std::move(details)))
    {
    }

    ExitCode code() const { return m_code; }
    const std::string& remedy() const { return m_remedy; }
    const Json& details() const { return *m_details; }

private:
    ExitCode m_code;
    std::string m_remedy;
    std::shared_ptr<const Json> m_details; ///< shared, so that copying the exception can not fail
};

} // namespace tessary::ctl
