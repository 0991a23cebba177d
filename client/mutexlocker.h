// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_MUTEXLOCKER_H
#define NUV_MUTEXLOCKER_H

#include <QMutex>
#include <QThread>

#include <atomic>

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

// Holds a QMutex for one scope; a null mutex is not locked. QMutex locks and
// unlocks inside Qt's library, which a ThreadSanitizer build does not
// instrument, so there the order the lock gives is stated explicitly.
class MutexLocker
{
public:
    explicit MutexLocker(QMutex *mutex)
        : held(mutex)
    {
        if (!held)
            return;
        held->lock();
#ifdef NUV_THREAD_SANITIZER
        __tsan_acquire(held);
#endif
    }
    ~MutexLocker()
    {
        unlock();
    }
    MutexLocker(const MutexLocker &) = delete;
    MutexLocker &operator=(const MutexLocker &) = delete;

    void unlock()
    {
        if (!held)
            return;
#ifdef NUV_THREAD_SANITIZER
        __tsan_release(held);
#endif
        held->unlock();
        held = nullptr;
    }

private:
    QMutex *held;
};

// Holds the client's operation lock for one scope and notes which thread
// holds it. The lock is not recursive: a thread that asks for it again (a
// slot connected directly to a signal emitted under it) would wait on itself
// for ever, so callers check isHeldHere() first and refuse instead.
class OperationLocker
{
public:
    OperationLocker(QMutex *mutex, std::atomic<Qt::HANDLE> &holder)
        : locker(mutex)
        , holder(mutex ? &holder : nullptr)
    {
        if (this->holder)
            this->holder->store(QThread::currentThreadId());
    }
    ~OperationLocker() { unlock(); }
    OperationLocker(const OperationLocker &) = delete;
    OperationLocker &operator=(const OperationLocker &) = delete;

    // Cleared before the lock goes, so that the next holder's mark is never
    // overwritten.
    void unlock()
    {
        if (holder)
            holder->store(nullptr);
        holder = nullptr;
        locker.unlock();
    }

    static bool isHeldHere(const std::atomic<Qt::HANDLE> &holder)
    {
        return holder.load() == QThread::currentThreadId();
    }

private:
    MutexLocker locker;
    std::atomic<Qt::HANDLE> *holder;
};

} // namespace nuv

#endif // NUV_MUTEXLOCKER_H
