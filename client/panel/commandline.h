#pragma once

#include "client/panel/jobs.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/progress.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tessary::panel {

/// What the operator of the panel lets others do.
struct Allowed
{
    bool command = false; ///< shell commands on the instrument, in whatever disguise
    bool update = false;
};

/// A command line is not allowed; the text says what and why, the remedy how to allow it.
class NotAllowed : public std::runtime_error
{
public:
    NotAllowed(const std::string& cause, std::string remedy)
        : std::runtime_error(cause)
        , m_remedy(std::move(remedy))
    {
    }

    const std::string& remedy() const { return m_remedy; }

private:
    std::string m_remedy;
};

/// The sub-commands of a tessaryctl command line, "record start"; empty for help. Throws Failure Usage for what is none,
/// NotAllowed. `uploads`: the folder that packages come from.
std::string checkedCommand(
    const std::vector<std::string>& words, const Allowed& allowed, const std::string& uploads);
/// The same names, whatever is allowed.
std::string commandOf(const std::vector<std::string>& words);

/// Carries out a command line on the session's port, its progress told to `hear`.
Outcome runCommandLine(ctl::Session& session, const std::string& port, const std::vector<std::string>& words,
    const ctl::ProgressListener::Hear& hear);

/// Failure as --json tells it.
Outcome outcomeOf(const ctl::Failure& failure);

} // namespace tessary::panel
