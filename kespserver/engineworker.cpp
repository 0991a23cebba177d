// SPDX-License-Identifier: Apache-2.0
#include "engineworker.h"

namespace kesp {

EngineWorker::EngineWorker()
    : thread([this] { loop(); })
{ }

EngineWorker::~EngineWorker()
{
    {
        nuv::MutexLocker lock(&mutex);
        quitting = true;
        changed.wakeAll();
    }
    thread.join();
}

void EngineWorker::start(std::function<void()> work)
{
    nuv::MutexLocker lock(&mutex);
    job = std::move(work);
    busy = true;
    changed.wakeAll();
}

bool EngineWorker::wait(int waitMs)
{
    const QDeadlineTimer deadline(waitMs);
    nuv::MutexLocker lock(&mutex);
    while (busy) {
        if (!mutex.wait(changed, deadline))
            return !busy;
    }
    return true;
}

void EngineWorker::loop()
{
    nuv::MutexLocker lock(&mutex);
    for (;;) {
        while (!quitting && !job)
            mutex.wait(changed);
        if (quitting)
            return;
        std::function<void()> work = std::move(job);
        job = nullptr;
        mutex.unlock();
        work();
        mutex.lock();
        busy = false;
        changed.wakeAll();
    }
}

} // namespace kesp
