#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace tessary::test {

/// tessary-send running; its outputs go to one file.
class Sending
{
public:
    explicit Sending(std::vector<std::string> arguments);
    ~Sending();
    Sending(const Sending&) = delete;
    Sending& operator=(const Sending&) = delete;

    /// Exit status, or -1 when a signal ended it.
    int wait();

    void signal(int number) const;

    std::string output() const;

    /// A number of the JSON line; -1 when it is not there.
    double figure(const std::string& name) const;

private:
    std::string m_output;
    pid_t m_process = -1;
};

} // namespace tessary::test
