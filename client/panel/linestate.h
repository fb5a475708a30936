#pragma once

#include "client/panel/hub.h"
#include "client/tessaryctl/failure.h"

#include <string>

namespace tessary::panel {

/// How the line to the instrument is, told under "line". Used from one thread.
class LineState
{
public:
    LineState(Hub& hub, std::string port);

    /// A question was answered as it should be.
    void answered();
    /// It was not. True when the port has to be opened anew.
    bool failed(const ctl::Failure& failure);
    bool answers() const { return m_answers; }

private:
    void become(bool open, bool answers, const std::string& error, const std::string& remedy);

    Hub& m_hub;
    std::string m_port;
    bool m_open = false;
    bool m_answers = false;
    std::string m_since; ///< it is open or answers, or does not
    std::string m_error;
    std::string m_remedy;
};

} // namespace tessary::panel
