// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_ENGINEWORKER_H
#define KESPSERVER_ENGINEWORKER_H

#include "nuvmutex.h"

#include <functional>
#include <thread>

namespace kesp {

/*
 * One thread that runs the engine's work, always the same one (the engine
 * keeps its database connection on the thread that uses it), so that the
 * broker connection's thread stays free to keep heart-beats going while a
 * long command (a backup, a web call of up to three minutes) runs. A broker
 * that misses our heart-beats would drop the connection and hand the
 * request to another instance while this one still works on it.
 */
class EngineWorker
{
public:
    EngineWorker();
    ~EngineWorker();
    EngineWorker(const EngineWorker &) = delete;
    EngineWorker &operator=(const EngineWorker &) = delete;

    // Starts `work` on the worker; one job at a time.
    void start(std::function<void()> work);
    // Waits at most `waitMs` for the job; true once it is done.
    bool wait(int waitMs);

private:
    void loop();

    nuv::Mutex mutex;
    QWaitCondition changed;
    std::function<void()> job NUV_GUARDED_BY(mutex);
    bool busy NUV_GUARDED_BY(mutex) = false;
    bool quitting NUV_GUARDED_BY(mutex) = false;
    std::thread thread;
};

} // namespace kesp

#endif // KESPSERVER_ENGINEWORKER_H
