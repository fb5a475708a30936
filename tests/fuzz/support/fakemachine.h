#pragma once

#include <string>
#include <vector>

/// What stands in for the machine around the daemon: the shell, the programs it runs, the wired interface.
/// Nothing is run; shell commands are noted. A way to start something that leads past these stand-ins is a
/// finding.
namespace fakemachine {

struct Behaviour
{
    bool linkUp = true;
    std::string programOutput; ///< on standard output, of every program
    std::string programErrors; ///< on standard error
};

/// As of the next call, and forgets the shell commands noted before.
void set(Behaviour behaviour);

/// Shell commands since set(), oldest first.
const std::vector<std::string>& shellCommands();

} // namespace fakemachine
