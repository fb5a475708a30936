#pragma once

#include <QtGlobal>

namespace tessary::test {

/// For figures that other work on the machine must not change: while the object lives, this program, what it
/// starts, and the daemon have their turn before everything else. Of the daemon's threads, those that it has
/// and those that they start; GStreamer's streaming threads take nothing over, so a source runs before.
/// One at a time on this machine: the next waits.
class FirstInTurn
{
public:
    explicit FirstInTurn(qint64 daemonPid);
    ~FirstInTurn();
    FirstInTurn(const FirstInTurn&) = delete;
    FirstInTurn& operator=(const FirstInTurn&) = delete;

private:
    void schedule(int policy, int priority) const;

    int m_turn; ///< an open file
    qint64 m_daemonPid;
};

} // namespace tessary::test
