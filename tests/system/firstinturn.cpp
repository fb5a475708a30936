#include "firstinturn.h"

#include "kit/usernamespace.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <QDir>
#include <sched.h>
#include <sys/file.h>
#include <unistd.h>

namespace tessary::test {

FirstInTurn::FirstInTurn(qint64 daemonPid)
    : m_turn(::open(QFile::encodeName(QDir::temp().filePath("tessary-first-in-turn")),
        O_RDWR | O_CREAT | O_CLOEXEC, 0666))
    , m_daemonPid(daemonPid)
{
    EXPECT_EQ(::flock(m_turn, LOCK_EX), 0) << std::strerror(errno);
    schedule(SCHED_RR, 1);
}

FirstInTurn::~FirstInTurn()
{
    schedule(SCHED_OTHER, 0);
    ::close(m_turn);
}

void FirstInTurn::schedule(int policy, int priority) const
{
    const sched_param param{priority};
    if (inUserNamespace())
        return; // nobody may there: the machine has to be at rest
    EXPECT_EQ(::sched_setscheduler(0, policy, &param), 0) << std::strerror(errno);
    const QDir threads("/proc/" + QString::number(m_daemonPid) + "/task");
    for (const QString& thread : threads.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const bool scheduled = ::sched_setscheduler(thread.toInt(), policy, &param) == 0;
        EXPECT_TRUE(scheduled || errno == ESRCH) << std::strerror(errno); // it may have ended
    }
}

} // namespace tessary::test
