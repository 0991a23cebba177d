// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_NUVMUTEX_H
#define NUV_NUVMUTEX_H

#include "threadsafety.h"

#include <QDeadlineTimer>
#include <QMutex>
#include <QWaitCondition>

#if defined(__SANITIZE_THREAD__)
#define NUV_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define NUV_THREAD_SANITIZER 1
#endif
#endif
#ifdef NUV_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace nuv {

// QMutex, QWaitCondition and queued calls order threads inside QtCore, which
// a ThreadSanitizer build does not instrument; these state that order
// explicitly there, and compile to nothing elsewhere.

inline void syncRelease([[maybe_unused]] const void *address)
{
#ifdef NUV_THREAD_SANITIZER
    __tsan_release(const_cast<void *>(address));
#endif
}

inline void syncAcquire([[maybe_unused]] const void *address)
{
#ifdef NUV_THREAD_SANITIZER
    __tsan_acquire(const_cast<void *>(address));
#endif
}

// A non-recursive mutex: a QMutex whose order ThreadSanitizer sees and whose
// holders clang's thread-safety analysis checks.
class NUV_CAPABILITY("mutex") Mutex
{
public:
    Mutex() = default;
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;

    void lock() NUV_ACQUIRE()
    {
        mutex.lock();
        syncAcquire(this);
    }
    void unlock() NUV_RELEASE()
    {
        syncRelease(this);
        mutex.unlock();
    }
    // Gives the mutex up while it waits on `condition`, and holds it again
    // on return; false when the deadline passed first.
    bool wait(QWaitCondition &condition, QDeadlineTimer deadline = QDeadlineTimer::Forever)
        NUV_REQUIRES(this)
    {
        syncRelease(this);
        const bool woken = condition.wait(&mutex, deadline);
        syncAcquire(this);
        return woken;
    }

private:
    QMutex mutex;
};

// Holds a Mutex for one scope, or until unlock().
class NUV_SCOPED_CAPABILITY MutexLocker
{
public:
    explicit MutexLocker(Mutex *mutex) NUV_ACQUIRE(mutex)
        : held(mutex)
    {
        held->lock();
    }
    ~MutexLocker() NUV_RELEASE()
    {
        if (held)
            held->unlock();
    }
    MutexLocker(const MutexLocker &) = delete;
    MutexLocker &operator=(const MutexLocker &) = delete;

    void unlock() NUV_RELEASE()
    {
        held->unlock();
        held = nullptr;
    }

private:
    Mutex *held;
};

// The last capture of a function queued to another thread: copied into
// place after the others, it hands them over to the thread that runs the
// function, which calls received() first and finished() last; destroyed
// first, it hands them back to whichever thread lets go of the call last.
class SyncHandoff
{
public:
    SyncHandoff() { syncRelease(this); }
    SyncHandoff(const SyncHandoff &) { syncRelease(this); }
    SyncHandoff(SyncHandoff &&) noexcept { syncRelease(this); }
    SyncHandoff &operator=(const SyncHandoff &) = delete;
    ~SyncHandoff() { syncAcquire(this); }
    void received() const { syncAcquire(this); }
    void finished() const { syncRelease(this); }
};

} // namespace nuv

#endif // NUV_NUVMUTEX_H
