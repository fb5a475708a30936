#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tessary::panel {

/// How a program ended and what it said.
struct ProgramEnd
{
    int status = 0; ///< exit status; of one that a signal ended 128 and the signal's number
    std::string output; ///< standard output and standard error
};

/// Another program, started with its words as they are (no shell); what it says goes to a file that is gone with the
/// object.
class Program
{
public:
    /// Throws Failure when it can not be started.
    explicit Program(const std::vector<std::string>& words);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return m_pid; }
    bool running();
    /// Waits for its end.
    ProgramEnd wait();
    /// What it has said so far: the end of it, at most some kilobytes.
    std::string said() const;

private:
    void ended(int status);

    pid_t m_pid = -1;
    int m_output = -1; ///< a file without a name
    std::optional<int> m_status;
};

/// The words with "sudo -n" in front unless this is root, for what needs root.
std::vector<std::string> asRoot(std::vector<std::string> words);

} // namespace tessary::panel
