#pragma once

#include <mutex>

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

/// Holds a Mutex from here to the end of the block.
class TESSARY_THREAD_ANALYSIS(scoped_lockable) MutexLock
{
public:
    explicit MutexLock(Mutex& mutex) TESSARY_THREAD_ANALYSIS(acquire_capability(mutex))
        : m_mutex(mutex)
    {
        m_mutex.lock();
    }
    ~MutexLock() TESSARY_THREAD_ANALYSIS(release_capability()) { m_mutex.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& m_mutex;
};
