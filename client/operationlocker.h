// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_OPERATIONLOCKER_H
#define NUV_OPERATIONLOCKER_H

#include "nuvmutex.h"

#include <QThread>

#include <atomic>

namespace nuv {

// Holds the client's operation lock for one scope (a null lock is not
// taken: commands that need none) and notes which thread holds it. The lock
// is not recursive: a thread that asks for it again (a slot connected
// directly to a signal emitted under it) would wait on itself for ever, so
// callers check isHeldHere() first and refuse instead. The lock serialises
// whole operations and guards no member of its own, so taking it only on
// some paths is no gap for the thread-safety analysis.
class OperationLocker
{
public:
    OperationLocker(Mutex *mutex, std::atomic<Qt::HANDLE> &holder) NUV_NO_THREAD_SAFETY_ANALYSIS
        : held(mutex),
          holder(mutex ? &holder : nullptr)
    {
        if (!held)
            return;
        held->lock();
        this->holder->store(QThread::currentThreadId());
    }
    ~OperationLocker() { unlock(); }
    OperationLocker(const OperationLocker &) = delete;
    OperationLocker &operator=(const OperationLocker &) = delete;

    // Cleared before the lock goes, so that the next holder's mark is never
    // overwritten.
    void unlock() NUV_NO_THREAD_SAFETY_ANALYSIS
    {
        if (holder)
            holder->store(nullptr);
        holder = nullptr;
        if (held)
            held->unlock();
        held = nullptr;
    }

    static bool isHeldHere(const std::atomic<Qt::HANDLE> &holder)
    {
        return holder.load() == QThread::currentThreadId();
    }

private:
    Mutex *held;
    std::atomic<Qt::HANDLE> *holder;
};

} // namespace nuv

#endif // NUV_OPERATIONLOCKER_H
