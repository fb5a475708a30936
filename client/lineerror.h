#pragma once

#include <stdexcept>
#include <string>

namespace tessary::client {

/// Something about the serial line itself went wrong. The text names the cause and what to do about it.
class LineError : public std::runtime_error
{
public:
    enum class Kind {
        CannotOpen, ///< no such port, no permission
        NotATerminal, ///< the path is something else than a tty or pty
        HungUp, ///< the far end is gone: adapter unplugged, virtual instrument ended
        Stopped, ///< the waiting was ended before its time: SerialLine::stopWhen()
        TimedOut, ///< nothing, or not enough, came in time
        Failed, ///< any other error of the operating system
    };

    LineError(Kind kind, const std::string& text);

    Kind kind() const { return m_kind; }
    /// The text is both, parted by a semicolon.
    std::string cause() const;
    /// Empty when there is none.
    std::string remedy() const;

private:
    Kind m_kind;
};

} // namespace tessary::client
