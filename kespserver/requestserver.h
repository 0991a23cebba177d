// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_REQUESTSERVER_H
#define KESPSERVER_REQUESTSERVER_H

#include "blockingclient.h"
#include "metrics.h"
#include "nuvmqclassifymessage.h"
#include "peercheck.h"
#include "serverconfig.h"
#include "servercounters.h"
#include "systemdnotify.h"
#include "workerpool.h"

#include <QElapsedTimer>

#include <csignal>
#include <functional>
#include <memory>
#include <vector>

namespace nuvserver {
class ServerEngine;
}

namespace kesp {

// What identifies a delivery of a request across redeliveries: the broker's
// message id stays the same when it delivers a request again; the
// correlation id tells requests of different callers apart.
QString requestKey(const stomp::Frame &message);
// Decodes a request's body strictly; an empty text when it is one whole
// classify record, else what is wrong with it (the lenient decoder of the
// transport would make a damaged body a request with empty fields).
QString decodeRequest(const QByteArray &body, nuvMQClassifyMessage *request);
// Whether the caller has given up on the request by `nowMs` (milliseconds
// since 1970 UTC): its `expires` header is set and past. An answer would
// only be dropped by the caller's transport.
bool hasExpired(const stomp::Frame &message, qint64 nowMs);

/*
 * The daemon's loop: connect (again and again, with back-off), subscribe
 * to the request queue, and for each request: run it through an engine
 * (keyed, so a redelivered request is answered from its record instead of
 * running twice), send the reply to its reply-to, and only then acknowledge
 * it. A request that dies with the connection before its ACK comes back
 * from the broker, to this instance or another.
 *
 * Several requests run at once, one per worker (workerpool.h), each engine
 * on a database connection of its own; the broker prefetches at least as
 * many. This thread alone uses the broker connection: it hands requests to
 * the workers and sends each reply and ACK as its request finishes, in
 * whatever order they finish. A graceful stop takes no new request and
 * answers every one in hand before it disconnects.
 *
 * Sessions: a request is run only with a token of the transport's form, and
 * under the broker connection that sent it, which the engine binds logins
 * to. The broker's connection advisories end the sessions of connections
 * that close; idle sessions are swept once a minute.
 */
class RequestServer
{
public:
    // One worker per engine (config.workers of them, opened).
    RequestServer(const ServerConfig &config,
                  const std::vector<nuvserver::ServerEngine *> &engines);

    // Announces `databaseId` to the other instances on the queue before
    // serving, and refuses to serve beside instances on another database.
    void checkPeers(const QString &databaseId);
    // Serves counters and health on the configured metrics address; false
    // with `error` when it cannot listen there.
    bool startMetrics(QString *error);

    // Serves until stopRequested is set, or a permanent failure; returns
    // the process exit status (exitstatus.h).
    int run();

    // Set from signal handlers; polled between frames.
    static volatile std::sig_atomic_t stopRequested;
    static volatile std::sig_atomic_t statusRequested;

private:
    enum class Connection { Serving, Failed, Refused, OtherDatabase };
    struct InHand;

    Connection connectOnce(QString *why);
    Connection meetPeers();
    void answerPeer(const stomp::Frame &message);
    QByteArray metricsPage(const QByteArray &path, int *status) const;
    void serveConnection();
    void dispatch(const stomp::Frame &frame);
    void serve(const stomp::Frame &message);
    // Replies and acknowledges; marks the connection lost when it cannot.
    void finish(const InHand &request);
    void logRequest(const InHand &request) const;
    // Sleeps until a frame arrives, a worker finishes or `waitMs` passes.
    void waitForWork(int waitMs);
    // Lets every request in hand finish (answering it while the connection
    // holds) and keeps the connection alive meanwhile.
    void drain();
    void pause(int ms);
    void log(int level, const QString &line) const;
    void pollSignals();
    // Runs `job` on a worker and keeps the broker connection alive
    // (heart-beats), and finishes other requests, until it is done.
    void runNow(const WorkerPool::Job &job);
    // The same until `condition` holds.
    void waitUntil(const std::function<bool()> &condition);
    void pruneRecords();
    void housekeeping();
    void connectionClosed(const stomp::Frame &advisory);

    const ServerConfig &config;
    stomp::BlockingClient link;
    ServerCounters counters;
    // After the counters: its workers count in them until they end.
    WorkerPool pool;
    bool lost = false; // the current connection failed under a send
    QElapsedTimer sincePrune;
    SystemdNotifier notifier;
    std::unique_ptr<PeerCheck> peers;
    std::unique_ptr<MetricsServer> metrics;
    QElapsedTimer sinceSweep;
};

} // namespace kesp

#endif // KESPSERVER_REQUESTSERVER_H
