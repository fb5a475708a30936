#pragma once

#include <string>
#include <vector>

/// What keeps a unit test from the machine that it runs on: the daemon's code uses absolute paths and the
/// shell, so the test process gets a mount namespace of its own and a PATH that holds nothing but recording
/// scripts.
///
/// Call from a test environment's or suite's set-up, before any thread is started: the namespace belongs to
/// the calling thread and to the threads that it starts later.
namespace privatemachine {

/// Enters a private mount namespace with an own /dev (null, zero, urandom, the pseudo-terminals and nothing
/// else). Returns an empty text, or the reason why it can not be done here (a test then skips with it). A
/// second call does nothing.
std::string enter();

/// Leaves the machine's network: no interface but an unconfigured loopback. Returns an empty text or the
/// reason.
std::string leaveNetwork();

/// Puts an empty file system over `directory` (made if absent on a private layer), so that what the code
/// writes there stays in the test. Returns an empty text or the reason for a failure. Needs enter().
std::string coverWithEmpty(const std::string& directory);

/// Puts a writable layer over `directory` that shows what the machine has there and keeps all changes
/// private.
std::string coverWithLayer(const std::string& directory);

} // namespace privatemachine

/// A folder of scripts that stand in PATH for the programs that the daemon's code runs; each notes its call.
/// PATH names only this folder while the object lives, so a program that has no script is not found at all.
class RecordedPrograms
{
public:
    RecordedPrograms();
    ~RecordedPrograms();
    RecordedPrograms(const RecordedPrograms&) = delete;
    RecordedPrograms& operator=(const RecordedPrograms&) = delete;

    /// A program that notes its call, prints the texts and ends with the status.
    void add(const std::string& name, const std::string& standardOutput = {},
        const std::string& standardError = {}, int status = 0);
    /// A program that notes its call and then runs shell text ("$@" holds its arguments; only shell built-ins
    /// are found).
    void addScript(const std::string& name, const std::string& shellText);

    /// The calls so far, oldest first: name and arguments joined by "|", for example "nmcli|networking|on".
    std::vector<std::string> calls() const;
    void forget();

    const std::string& folder() const { return m_folder; }

private:
    std::string m_folder;
    std::string m_oldPath;
};
