// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_STARTLINE_H
#define NUV_STARTLINE_H

#include "nuvmutex.h"

#include <QElapsedTimer>
#include <QWaitCondition>

#include <functional>

namespace nuv {

/*
 * Holds threads until all of them have arrived, so that what they do next
 * starts at one moment (their set-up, a login say, stays out of it). The
 * last to arrive calls onStart() before any thread goes on.
 */
class StartLine
{
public:
    explicit StartLine(int threads, std::function<void()> onStart = {})
        : waiting(threads)
        , onStart(std::move(onStart))
    { }

    void arrive()
    {
        MutexLocker lock(&mutex);
        if (--waiting == 0) {
            if (onStart)
                onStart();
            wall.start();
            opened.wakeAll();
            return;
        }
        while (waiting != 0)
            mutex.wait(opened);
    }

    QElapsedTimer wall; // started when the line opens

private:
    Mutex mutex;
    QWaitCondition opened;
    int waiting NUV_GUARDED_BY(mutex);
    const std::function<void()> onStart;
};

} // namespace nuv

#endif // NUV_STARTLINE_H
