// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_SERVERCOUNTERS_H
#define KESPSERVER_SERVERCOUNTERS_H

#include "nuvmutex.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QVector>

#include <array>

namespace kesp {

/*
 * Health and counters of one instance, for the status line that SIGUSR1
 * asks for and the one written at exit, and for the metrics endpoint,
 * which reads them from a thread of its own. Latencies are kept for the
 * last requests only, so the median follows the current load; the
 * histogram counts them all.
 */
class ServerCounters
{
public:
    void answered(qint64 micros, bool failed, bool replayed);
    void expired();
    // What one request cost the database (ServerEngine's count): the
    // statements it sent, and how often it ran again after losing a race
    // with a concurrent write.
    void databaseWork(int roundTrips, int retries);
    void connected(const QString &broker);
    void disconnected();
    void setWorkers(int count);
    // A request enters or leaves an engine (from the workers' threads).
    void engineEntered();
    void engineLeft();

    qint64 requests() const;
    // Requests in the engines now, and the most there were at once.
    int running() const;
    int peakRunning() const;
    bool isConnected() const;
    QString statusLine() const;
    // The counters in the Prometheus text exposition format.
    QByteArray prometheusText() const;

    // Upper bounds of the latency histogram's buckets, in seconds.
    static constexpr std::array<double, 12> bucketBounds
        = { 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 10 };

private:
    mutable nuv::Mutex mutex;
    qint64 requestCount NUV_GUARDED_BY(mutex) = 0;
    qint64 errorCount NUV_GUARDED_BY(mutex) = 0;
    qint64 expiredCount NUV_GUARDED_BY(mutex) = 0;
    qint64 replayedCount NUV_GUARDED_BY(mutex) = 0;
    qint64 connectCount NUV_GUARDED_BY(mutex) = 0;
    qint64 roundTripCount NUV_GUARDED_BY(mutex) = 0;
    qint64 retryCount NUV_GUARDED_BY(mutex) = 0;
    int workers NUV_GUARDED_BY(mutex) = 1;
    int runningNow NUV_GUARDED_BY(mutex) = 0;
    int runningPeak NUV_GUARDED_BY(mutex) = 0;
    qint64 totalMicros NUV_GUARDED_BY(mutex) = 0;
    qint64 maxMicros NUV_GUARDED_BY(mutex) = 0;
    // not cumulative
    std::array<qint64, bucketBounds.size()> buckets NUV_GUARDED_BY(mutex) {};
    QVector<qint64> recent NUV_GUARDED_BY(mutex); // ring of the last latencies
    int next NUV_GUARDED_BY(mutex) = 0;
    QString brokerLabel NUV_GUARDED_BY(mutex);
    QDateTime connectedSince NUV_GUARDED_BY(mutex);
    const QDateTime started = QDateTime::currentDateTimeUtc();
};

} // namespace kesp

#endif // KESPSERVER_SERVERCOUNTERS_H
