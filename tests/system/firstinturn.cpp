#include "firstinturn.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sched.h>

namespace tessary::test {

FirstInTurn::FirstInTurn(qint64 daemonPid)
    : m_daemonPid(daemonPid)
{
    schedule(SCHED_RR, 1);
}

FirstInTurn::~FirstInTurn()
{
    schedule(SCHED_OTHER, 0);
}

void FirstInTurn::schedule(int policy, int priority) const
{
    const sched_param param{priority};
    for (const pid_t process : {pid_t{0}, static_cast<pid_t>(m_daemonPid)})
        EXPECT_EQ(::sched_setscheduler(process, policy, &param), 0) << std::strerror(errno);
}

} // namespace tessary::test
