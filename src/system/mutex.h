#pragma once

#include <atomic>
#include <mutex>
#include <thread>

// What a mutex guards is checked by clang's thread-safety analysis, which script/check runs; other compilers see
// nothing of it.
#ifdef __clang__
#define TESSARY_THREAD_ANALYSIS(attribute) __attribute__((attribute))
#else
#define TESSARY_THREAD_ANALYSIS(attribute)
#endif

/// Of a member: read and written only while `mutex` is held. Of a pointer's target: PT_GUARDED_BY.
#define GUARDED_BY(mutex) TESSARY_THREAD_ANALYSIS(guarded_by(mutex))
#define PT_GUARDED_BY(mutex) TESSARY_THREAD_ANALYSIS(pt_guarded_by(mutex))
/// Of a function: its caller holds `mutex`.
#define REQUIRES(mutex) TESSARY_THREAD_ANALYSIS(requires_capability(mutex))

/// A std::mutex that the analysis knows.
class TESSARY_THREAD_ANALYSIS(capability("mutex")) Mutex
{
public:
    /// Throws std::system_error when it fails, as std::mutex does.
    void lock() TESSARY_THREAD_ANALYSIS(acquire_capability()) { m_mutex.lock(); }
    bool try_lock() TESSARY_THREAD_ANALYSIS(try_acquire_capability(true)) { return m_mutex.try_lock(); }
    void unlock() TESSARY_THREAD_ANALYSIS(release_capability()) { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

/// Of what is held for microseconds at the most, and tried far more often than it is waited for: trying takes one
/// atomic operation and releasing none, of which a std::mutex takes one each. Who waits gives up its turn on the
/// processor, again and again; it never fails.
class TESSARY_THREAD_ANALYSIS(capability("mutex")) BriefMutex
{
public:
    void lock() TESSARY_THREAD_ANALYSIS(acquire_capability())
    {
        while (m_held.test_and_set(std::memory_order_acquire))
            std::this_thread::yield();
    }
    bool try_lock() TESSARY_THREAD_ANALYSIS(try_acquire_capability(true))
    {
        return !m_held.test_and_set(std::memory_order_acquire);
    }
    void unlock() TESSARY_THREAD_ANALYSIS(release_capability()) { m_held.clear(std::memory_order_release); }

private:
    std::atomic_flag m_held = ATOMIC_FLAG_INIT;
};

/// Holds a Mutex, or a BriefMutex, from here to the end of the block.
template <typename AnyMutex> class TESSARY_THREAD_ANALYSIS(scoped_lockable) MutexLock
{
public:
    explicit MutexLock(AnyMutex& mutex) TESSARY_THREAD_ANALYSIS(acquire_capability(mutex))
        : m_mutex(mutex)
    {
        m_mutex.lock();
    }
    ~MutexLock() TESSARY_THREAD_ANALYSIS(release_capability()) { m_mutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    AnyMutex& m_mutex;
};
