// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_SERVERCOUNTERS_H
#define KESPSERVER_SERVERCOUNTERS_H

#include <QDateTime>
#include <QString>
#include <QVector>

namespace kesp {

/*
 * Health and counters of one instance, for the status line that SIGUSR1
 * asks for and the one written at exit. Latencies are kept for the last
 * requests only, so the median follows the current load.
 */
class ServerCounters
{
public:
    void answered(qint64 micros, bool failed, bool replayed);
    void expired() { ++expiredCount; }
    void connected(const QString &broker);
    void disconnected();

    qint64 requests() const { return requestCount; }
    QString statusLine() const;

private:
    qint64 requestCount = 0;
    qint64 errorCount = 0;
    qint64 expiredCount = 0;
    qint64 replayedCount = 0;
    qint64 connectCount = 0;
    qint64 totalMicros = 0;
    qint64 maxMicros = 0;
    QVector<qint64> recent; // ring of the last latencies
    int next = 0;
    QString brokerLabel;
    QDateTime connectedSince;
    const QDateTime started = QDateTime::currentDateTimeUtc();
};

} // namespace kesp

#endif // KESPSERVER_SERVERCOUNTERS_H
