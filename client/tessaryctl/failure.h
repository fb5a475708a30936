#pragma once

#include <stdexcept>
#include <string>

namespace tessary::ctl {

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
    UpdateNotStarted = 20, ///< the instrument did not take up the update
    UpdateRefused = 21, ///< checksum wrong, or no room for the file on the instrument
    UpdateBytesLost = 22, ///< the instrument waited in vain for the rest of the package
    UpdateRestarted = 23, ///< the instrument restarted in the middle
    UpdateUnconfirmed = 24, ///< everything was sent, and no answer came in time
    LimitCrossed = 30, ///< log: a limit was crossed
};

/// Ends a sub-command: what went wrong, and what the person at the bench can do about it.
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode code, const std::string& cause, std::string remedy = {})
        : std::runtime_error(cause)
        , m_code(code)
        , m_remedy(std::move(remedy))
    {
    }

    ExitCode code() const { return m_code; }
    const std::string& remedy() const { return m_remedy; }

private:
    ExitCode m_code;
    std::string m_remedy;
};

} // namespace tessary::ctl
