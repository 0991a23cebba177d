// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_WORKERPOOL_H
#define KESPSERVER_WORKERPOOL_H

#include "nuvmutex.h"

#include <deque>
#include <functional>
#include <thread>
#include <vector>

namespace nuvserver {
class ServerEngine;
}

namespace kesp {

/*
 * The threads that run the engines: one engine each, always on the same
 * thread (an engine keeps its database connection on the thread that uses
 * it), so that several requests run at once on as many database
 * connections, and the thread with the broker connection stays free to
 * keep heart-beats going, to take the next request and to send replies
 * while long commands (a backup, a web call of up to three minutes) run.
 *
 * Only that serving thread submits and collects; it learns of finished jobs
 * through a descriptor that it polls beside the broker's socket, and runs
 * their completions itself, in the order the jobs finished.
 */
class WorkerPool
{
public:
    using Job = std::function<void(nuvserver::ServerEngine &)>;

    // One worker per engine; the engines must outlive the pool.
    explicit WorkerPool(const std::vector<nuvserver::ServerEngine *> &engines);
    // Lets the running jobs finish; jobs still queued never start.
    ~WorkerPool();
    WorkerPool(const WorkerPool &) = delete;
    WorkerPool &operator=(const WorkerPool &) = delete;

    int size() const { return int(threads.size()); }
    // Queues `job` for the first worker that is free; `done` runs on the
    // serving thread in collect() once the job has returned.
    void submit(Job job, std::function<void()> done);
    // Jobs submitted whose completion has not run yet.
    int inHand() const { return submitted - collected; }
    // Runs the completions of the jobs that finished; how many.
    int collect();
    // Waits at most `waitMs` for a finished job; true when one waits.
    bool waitFinished(int waitMs);
    // Readable while a finished job waits for collect().
    int readyDescriptor() const { return readyFd; }

private:
    struct Entry
    {
        Job job;
        std::function<void()> done;
    };

    void loop(nuvserver::ServerEngine *engine);

    nuv::Mutex mutex;
    QWaitCondition wake; // workers: a job or the end
    QWaitCondition finishedChanged; // waitFinished()
    std::deque<Entry> queue NUV_GUARDED_BY(mutex);
    std::deque<std::function<void()>> finished NUV_GUARDED_BY(mutex);
    bool quitting NUV_GUARDED_BY(mutex) = false;
    int readyFd = -1;
    // The serving thread's own counts.
    int submitted = 0;
    int collected = 0;
    std::vector<std::thread> threads;
};

} // namespace kesp

#endif // KESPSERVER_WORKERPOOL_H
