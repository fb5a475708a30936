#include "firstinturn.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <QDir>
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
    EXPECT_EQ(::sched_setscheduler(0, policy, &param), 0) << std::strerror(errno);
    const QDir threads("/proc/" + QString::number(m_daemonPid) + "/task");
    for (const QString& thread : threads.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const bool scheduled = ::sched_setscheduler(thread.toInt(), policy, &param) == 0;
        EXPECT_TRUE(scheduled || errno == ESRCH) << std::strerror(errno); // it may have ended
    }
}

} // namespace tessary::test
