// SPDX-License-Identifier: Apache-2.0
#include "workerpool.h"

#include <chrono>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kesp {

WorkerPool::WorkerPool(const std::vector<nuvserver::ServerEngine *> &engines)
    : readyFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    for (nuvserver::ServerEngine *engine : engines)
        threads.emplace_back([this, engine] { loop(engine); });
}

WorkerPool::~WorkerPool()
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        quitting = true;
        queue.clear();
    }
    wake.notify_all();
    for (std::thread &thread : threads)
        thread.join();
    if (readyFd >= 0)
        close(readyFd);
}

void WorkerPool::submit(Job job, std::function<void()> done)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        queue.push_back({ std::move(job), std::move(done) });
    }
    ++submitted;
    wake.notify_one();
}

int WorkerPool::collect()
{
    std::deque<std::function<void()>> ready;
    {
        std::lock_guard<std::mutex> lock(mutex);
        ready.swap(finished);
        // Reset under the lock: a job that finishes after this sets it again.
        std::uint64_t count = 0;
        if (read(readyFd, &count, sizeof count) < 0) {
            // Nothing was signalled (EAGAIN): nothing to reset.
        }
    }
    for (const std::function<void()> &done : ready) {
        ++collected;
        if (done)
            done();
    }
    return int(ready.size());
}

bool WorkerPool::waitFinished(int waitMs)
{
    std::unique_lock<std::mutex> lock(mutex);
    return finishedChanged.wait_for(lock, std::chrono::milliseconds(waitMs > 0 ? waitMs : 0),
                                    [this] { return !finished.empty(); });
}

void WorkerPool::loop(nuvserver::ServerEngine *engine)
{
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        wake.wait(lock, [this] { return quitting || !queue.empty(); });
        if (quitting)
            return;
        Entry entry = std::move(queue.front());
        queue.pop_front();
        lock.unlock();
        entry.job(*engine);
        lock.lock();
        finished.push_back(std::move(entry.done));
        const std::uint64_t one = 1;
        if (write(readyFd, &one, sizeof one) < 0) {
            // The counter cannot overflow at one per job; nothing to do.
        }
        finishedChanged.notify_all();
    }
}

} // namespace kesp
