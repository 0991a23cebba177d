// SPDX-License-Identifier: Apache-2.0
#include "servercounters.h"

#include <algorithm>

namespace kesp {

namespace {
constexpr int recentKept = 4096;

QString millis(qint64 micros)
{
    return QString::number(double(micros) / 1000.0, 'f', 2);
}

void metric(QByteArray &out, const char *name, const char *type, const char *help, qint64 value)
{
    out += QByteArray("# HELP ") + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n' + name
        + ' ' + QByteArray::number(value) + '\n';
}
} // namespace

void ServerCounters::answered(qint64 micros, bool failed, bool replayed)
{
    nuv::MutexLocker lock(&mutex);
    ++requestCount;
    errorCount += failed ? 1 : 0;
    replayedCount += replayed ? 1 : 0;
    totalMicros += micros;
    maxMicros = qMax(maxMicros, micros);
    for (size_t i = 0; i < bucketBounds.size(); ++i) {
        if (double(micros) <= bucketBounds[i] * 1e6) {
            ++buckets[i];
            break;
        }
    }
    if (recent.size() < recentKept) {
        recent.append(micros);
    } else {
        recent[next] = micros;
        next = (next + 1) % recentKept;
    }
}

void ServerCounters::databaseWork(int roundTrips, int retries)
{
    nuv::MutexLocker lock(&mutex);
    roundTripCount += roundTrips;
    retryCount += retries;
}

void ServerCounters::expired()
{
    nuv::MutexLocker lock(&mutex);
    ++expiredCount;
}

void ServerCounters::connected(const QString &broker)
{
    nuv::MutexLocker lock(&mutex);
    ++connectCount;
    brokerLabel = broker;
    connectedSince = QDateTime::currentDateTimeUtc();
}

void ServerCounters::disconnected()
{
    nuv::MutexLocker lock(&mutex);
    connectedSince = QDateTime();
}

void ServerCounters::setWorkers(int count)
{
    nuv::MutexLocker lock(&mutex);
    workers = count;
}

void ServerCounters::engineEntered()
{
    nuv::MutexLocker lock(&mutex);
    runningPeak = qMax(runningPeak, ++runningNow);
}

void ServerCounters::engineLeft()
{
    nuv::MutexLocker lock(&mutex);
    --runningNow;
}

int ServerCounters::running() const
{
    nuv::MutexLocker lock(&mutex);
    return runningNow;
}

int ServerCounters::peakRunning() const
{
    nuv::MutexLocker lock(&mutex);
    return runningPeak;
}

qint64 ServerCounters::requests() const
{
    nuv::MutexLocker lock(&mutex);
    return requestCount;
}

bool ServerCounters::isConnected() const
{
    nuv::MutexLocker lock(&mutex);
    return connectedSince.isValid();
}

QString ServerCounters::statusLine() const
{
    nuv::MutexLocker lock(&mutex);
    QVector<qint64> sorted = recent;
    std::sort(sorted.begin(), sorted.end());
    const auto at = [&](double share) {
        return sorted.isEmpty() ? qint64(0) : sorted.at(int(share * (sorted.size() - 1)));
    };
    const QString health = connectedSince.isValid()
        ? QStringLiteral("connected to %1 since %2")
              .arg(brokerLabel, connectedSince.toString(Qt::ISODate))
        : QStringLiteral("not connected");
    return QStringLiteral("status: %1; up since %2; connections %3; workers %12, running %13 "
                          "(at most %14 at once); requests %4, errors %5, expired %6, replayed "
                          "%7; latency ms: mean %8, median %9, p95 %10, max %11")
        .arg(health, started.toString(Qt::ISODate))
        .arg(connectCount)
        .arg(requestCount)
        .arg(errorCount)
        .arg(expiredCount)
        .arg(replayedCount)
        .arg(millis(requestCount ? totalMicros / requestCount : 0), millis(at(0.5)),
             millis(at(0.95)), millis(maxMicros))
        .arg(workers)
        .arg(runningNow)
        .arg(runningPeak);
}

QByteArray ServerCounters::prometheusText() const
{
    nuv::MutexLocker lock(&mutex);
    QByteArray out;
    metric(out, "nuvkesp_requests_total", "counter", "Requests run (answered or one-way).",
           requestCount);
    metric(out, "nuvkesp_errors_total", "counter", "Requests answered with ERROR.", errorCount);
    metric(out, "nuvkesp_replayed_total", "counter",
           "Redelivered requests answered from their record.", replayedCount);
    metric(out, "nuvkesp_expired_total", "counter",
           "Requests dropped because their caller had given up.", expiredCount);
    metric(out, "nuvkesp_broker_connections_total", "counter", "Connections made to the broker.",
           connectCount);
    // Divided by the requests: what a database on another host costs each.
    metric(out, "nuvkesp_database_round_trips_total", "counter",
           "Statements sent to the database (each a round trip).", roundTripCount);
    metric(out, "nuvkesp_write_retries_total", "counter",
           "Requests run again after losing a race with a concurrent write.", retryCount);
    metric(out, "nuvkesp_broker_connected", "gauge",
           "1 while subscribed to the request queue, else 0.", connectedSince.isValid() ? 1 : 0);
    metric(out, "nuvkesp_workers", "gauge", "Engines that run requests at once.", workers);
    metric(out, "nuvkesp_requests_running", "gauge", "Requests in the engines now.", runningNow);
    metric(out, "nuvkesp_requests_running_peak", "gauge",
           "The most requests that were in the engines at once.", runningPeak);
    metric(out, "nuvkesp_start_time_seconds", "gauge", "When the instance started (Unix time).",
           started.toSecsSinceEpoch());
    const QByteArray name = "nuvkesp_request_duration_seconds";
    out += "# HELP " + name + " Time from taking a request to acknowledging it.\n# TYPE " + name
        + " histogram\n";
    qint64 cumulative = 0;
    for (size_t i = 0; i < bucketBounds.size(); ++i) {
        cumulative += buckets[i];
        out += name + "_bucket{le=\"" + QByteArray::number(bucketBounds[i]) + "\"} "
            + QByteArray::number(cumulative) + '\n';
    }
    out += name + "_bucket{le=\"+Inf\"} " + QByteArray::number(requestCount) + '\n';
    out += name + "_sum " + QByteArray::number(double(totalMicros) / 1e6, 'f', 6) + '\n';
    out += name + "_count " + QByteArray::number(requestCount) + '\n';
    return out;
}

} // namespace kesp
