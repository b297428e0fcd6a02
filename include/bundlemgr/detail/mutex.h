/// @file mutex.h
/// Locks that clang's thread-safety analysis understands (`clang++ -Wthread-safety`).
///
/// A lock of this library is one of ACE's where a public header shows it or where it is
/// recursive: these are taken through the same guards as ACE's own locks. It is the standard
/// library's, `Mutex`, everywhere else.
#pragma once

#include <condition_variable>
#include <mutex>

#include <ace/Guard_T.h>
#include <ace/RW_Mutex.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

/// @cond INTERNAL
#ifdef __clang__
#define ZO_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZO_THREAD_ANNOTATION(x)
#endif

// On a type: it is a lock, or a guard that holds one for its life.
#define ZO_LOCKABLE ZO_THREAD_ANNOTATION(capability("mutex"))
#define ZO_SCOPED_LOCKABLE ZO_THREAD_ANNOTATION(scoped_lockable)

// On data: the lock that is held whenever they are touched.
#define ZO_GUARDED_BY(lock) ZO_THREAD_ANNOTATION(guarded_by(lock))

// On a lock: of two that are held at once, it is the first.
#define ZO_ACQUIRED_BEFORE(...) ZO_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))

// On a function: what its callers hold, and what they do not.
#define ZO_REQUIRES(...) ZO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZO_EXCLUDES(...) ZO_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

// On a function that ends with another lock held than it began with.
#define ZO_ACQUIRE(...) ZO_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZO_ACQUIRE_SHARED(...) ZO_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define ZO_RELEASE(...) ZO_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))

// On a function whose locks depend on what happens at run time. The reason stands beside it.
#define ZO_NO_THREAD_SAFETY_ANALYSIS ZO_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace NS_BUNDLEMGR1 {
namespace detail {

/// The standard library's mutex, with the operations of ACE's locks. Constant-initialised and
/// trivially destroyed, so that it serves static constructors and destructors, too.
class ZO_LOCKABLE Mutex {
public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    int acquire() ZO_ACQUIRE() {
        m_mutex.lock();
        return 0;
    }
    int release() ZO_RELEASE() {
        m_mutex.unlock();
        return 0;
    }

private:
    friend class Condition;

    std::mutex m_mutex;
};

/// What threads wait for that let go of a `Mutex` meanwhile.
class Condition {
public:
    /// Returns when it has been told, or for no reason; then the mutex is held again.
    void Wait(Mutex& mutex) ZO_REQUIRES(mutex) {
        Lent lent(mutex.m_mutex);
        m_condition.wait(lent.lock);
    }
    /// Returns when it has been told, at that time, or for no reason.
    template <class Time>
    void WaitUntil(Mutex& mutex, Time time) ZO_REQUIRES(mutex) {
        Lent lent(mutex.m_mutex);
        m_condition.wait_until(lent.lock, time);
    }
    void TellAll() { m_condition.notify_all(); }

private:
    // The mutex stays the caller's, also when the thread is cancelled while it waits.
    struct Lent {
        explicit Lent(std::mutex& mutex) : lock(mutex, std::adopt_lock) {}
        ~Lent() { lock.release(); }
        Lent(const Lent&) = delete;
        Lent& operator=(const Lent&) = delete;

        std::unique_lock<std::mutex> lock;
    };

    std::condition_variable m_condition;
};

/// One of ACE's locks, and nothing more.
template <class AceLock>
class ZO_LOCKABLE Annotated : public AceLock {
public:
    int acquire() ZO_ACQUIRE() { return AceLock::acquire(); }
    int acquire_read() ZO_ACQUIRE_SHARED() { return AceLock::acquire_read(); }
    int release() ZO_RELEASE() { return AceLock::release(); }
};

using ThreadMutex = Annotated<ACE_Thread_Mutex>;
using RecursiveThreadMutex = Annotated<ACE_Recursive_Thread_Mutex>;
using RWMutex = Annotated<ACE_RW_Mutex>;

/// Holds a lock of either kind for its life, a reader/writer lock as its writer.
template <class Lock>
class ZO_SCOPED_LOCKABLE Guard {
public:
    explicit Guard(Lock& lock) ZO_ACQUIRE(lock) : m_guard(lock) {}
    ~Guard() ZO_RELEASE() = default;
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    ACE_Guard<Lock> m_guard;
};

/// Holds a reader/writer lock for its life, as one of its readers.
class ZO_SCOPED_LOCKABLE ReadGuard {
public:
    explicit ReadGuard(RWMutex& lock) ZO_ACQUIRE_SHARED(lock) : m_guard(lock) {}
    ~ReadGuard() ZO_RELEASE() = default;
    ReadGuard(const ReadGuard&) = delete;
    ReadGuard& operator=(const ReadGuard&) = delete;

private:
    ACE_Read_Guard<RWMutex> m_guard;
};

}  // namespace detail
}  // namespace NS_BUNDLEMGR1
/// @endcond
