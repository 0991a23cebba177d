// SPDX-License-Identifier: Apache-2.0
#include "workerpool.h"

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
        nuv::MutexLocker lock(&mutex);
        quitting = true;
        queue.clear();
        wake.wakeAll();
    }
    for (std::thread &thread : threads)
        thread.join();
    if (readyFd >= 0)
        close(readyFd);
}

void WorkerPool::submit(Job job, std::function<void()> done)
{
    {
        nuv::MutexLocker lock(&mutex);
        queue.push_back({ std::move(job), std::move(done) });
        wake.wakeOne();
    }
    ++submitted;
}

int WorkerPool::collect()
{
    std::deque<std::function<void()>> ready;
    {
        nuv::MutexLocker lock(&mutex);
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
    const QDeadlineTimer deadline(waitMs > 0 ? waitMs : 0);
    nuv::MutexLocker lock(&mutex);
    while (finished.empty()) {
        if (!mutex.wait(finishedChanged, deadline))
            return !finished.empty();
    }
    return true;
}

void WorkerPool::loop(nuvserver::ServerEngine *engine)
{
    nuv::MutexLocker lock(&mutex);
    for (;;) {
        while (!quitting && queue.empty())
            mutex.wait(wake);
        if (quitting)
            return;
        Entry entry = std::move(queue.front());
        queue.pop_front();
        mutex.unlock();
        entry.job(*engine);
        mutex.lock();
        finished.push_back(std::move(entry.done));
        const std::uint64_t one = 1;
        if (write(readyFd, &one, sizeof one) < 0) {
            // The counter cannot overflow at one per job; nothing to do.
        }
        finishedChanged.wakeAll();
    }
}

} // namespace kesp
