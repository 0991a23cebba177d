// SPDX-License-Identifier: Apache-2.0
#ifndef STOMP_TSANSYNC_H
#define STOMP_TSANSYNC_H

#include <QDeadlineTimer>
#include <QMutex>
#include <QWaitCondition>

#if defined(__SANITIZE_THREAD__)
#define STOMP_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define STOMP_THREAD_SANITIZER 1
#endif
#endif
#ifdef STOMP_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace stomp {

// QMutex, QWaitCondition and queued calls order threads inside QtCore, which
// a ThreadSanitizer build does not instrument; these state that order
// explicitly there, and compile to nothing elsewhere.

inline void syncRelease([[maybe_unused]] const void *address)
{
#ifdef STOMP_THREAD_SANITIZER
    __tsan_release(const_cast<void *>(address));
#endif
}

inline void syncAcquire([[maybe_unused]] const void *address)
{
#ifdef STOMP_THREAD_SANITIZER
    __tsan_acquire(const_cast<void *>(address));
#endif
}

// Holds a QMutex for one scope, like QMutexLocker.
class SyncLocker
{
public:
    explicit SyncLocker(QMutex *mutex)
        : held(mutex)
    {
        held->lock();
        syncAcquire(held);
    }
    ~SyncLocker()
    {
        syncRelease(held);
        held->unlock();
    }
    SyncLocker(const SyncLocker &) = delete;
    SyncLocker &operator=(const SyncLocker &) = delete;

private:
    QMutex *held;
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

// QWaitCondition::wait, with the mutex it gives up and takes again.
inline bool syncWait(QWaitCondition &condition, QMutex *mutex, QDeadlineTimer deadline)
{
    syncRelease(mutex);
    const bool woken = condition.wait(mutex, deadline);
    syncAcquire(mutex);
    return woken;
}

} // namespace stomp

#endif // STOMP_TSANSYNC_H
