// SPDX-License-Identifier: Apache-2.0
#include "engineworker.h"

#include <chrono>

namespace kesp {

EngineWorker::EngineWorker()
    : thread([this] { loop(); })
{ }

EngineWorker::~EngineWorker()
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        quitting = true;
    }
    changed.notify_all();
    thread.join();
}

void EngineWorker::start(std::function<void()> work)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        job = std::move(work);
        busy = true;
    }
    changed.notify_all();
}

bool EngineWorker::wait(int waitMs)
{
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::milliseconds(waitMs), [this] { return !busy; });
}

void EngineWorker::loop()
{
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return quitting || job; });
        if (quitting)
            return;
        std::function<void()> work = std::move(job);
        job = nullptr;
        lock.unlock();
        work();
        lock.lock();
        busy = false;
        changed.notify_all();
    }
}

} // namespace kesp
