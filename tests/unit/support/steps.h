#pragma once

#include "support/privatemachine.h"
#include "support/virtualtime.h"

#include <functional>
#include <string>
#include <vector>

/// The programs that the daemon runs and its waits between them, in their order. While the object lives, the
/// waits of the test's thread pass at once; a program with it has virtualtime.cpp among its sources.
class Steps
{
public:
    /// `programs` is borrowed; its calls so far are forgotten.
    explicit Steps(RecordedPrograms& programs);

    /// Since the last call: "nmcli|networking|on" for a program, "wait 500000" for µs.
    std::vector<std::string> take();

    /// Called with each wait when it has passed.
    std::function<void(std::int64_t)> onWait;

private:
    void noteCalls();
    void passed(std::int64_t us);

    RecordedPrograms& m_programs;
    std::vector<std::string> m_steps;
    std::size_t m_calls = 0; ///< of them in m_steps already
    virtualtime::Scope m_waits;
};
