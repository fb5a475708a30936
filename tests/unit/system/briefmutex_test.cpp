// The lock of what is held for microseconds at the most.
#include "system/mutex.h"

#include <future>
#include <gtest/gtest.h>

namespace {

bool canBeHad(BriefMutex& mutex)
{
    const bool had = mutex.try_lock();
    if (had)
        mutex.unlock();
    return had;
}

} // namespace

TEST(BriefMutexLock, WhoTriesAHeldOneIsRefusedAtOnceAndAReleasedOneIsHad)
{
    BriefMutex mutex;
    {
        const MutexLock lock(mutex);
        EXPECT_FALSE(std::async(std::launch::async, canBeHad, std::ref(mutex)).get());
    }
    EXPECT_TRUE(canBeHad(mutex));
    EXPECT_TRUE(canBeHad(mutex)); // who had it for a moment gave it back
}

TEST(BriefMutexLock, WhoWaitsGetsItAndSeesWhatWasWrittenUnderIt)
{
    BriefMutex mutex;
    int counted = 0;
    const auto count = [&] {
        for (int i = 0; i < 20000; ++i) {
            const MutexLock lock(mutex);
            ++counted;
        }
    };
    const auto other = std::async(std::launch::async, count);
    count();
    other.wait();
    EXPECT_EQ(counted, 40000);
}
