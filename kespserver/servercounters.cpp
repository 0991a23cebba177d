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
} // namespace

void ServerCounters::answered(qint64 micros, bool failed, bool replayed)
{
    ++requestCount;
    errorCount += failed ? 1 : 0;
    replayedCount += replayed ? 1 : 0;
    totalMicros += micros;
    maxMicros = qMax(maxMicros, micros);
    if (recent.size() < recentKept) {
        recent.append(micros);
    } else {
        recent[next] = micros;
        next = (next + 1) % recentKept;
    }
}

void ServerCounters::connected(const QString &broker)
{
    ++connectCount;
    brokerLabel = broker;
    connectedSince = QDateTime::currentDateTimeUtc();
}

void ServerCounters::disconnected()
{
    connectedSince = QDateTime();
}

QString ServerCounters::statusLine() const
{
    QVector<qint64> sorted = recent;
    std::sort(sorted.begin(), sorted.end());
    const auto at = [&](double share) {
        return sorted.isEmpty() ? qint64(0) : sorted.at(int(share * (sorted.size() - 1)));
    };
    const QString health = connectedSince.isValid()
        ? QStringLiteral("connected to %1 since %2")
              .arg(brokerLabel, connectedSince.toString(Qt::ISODate))
        : QStringLiteral("not connected");
    return QStringLiteral("status: %1; up since %2; connections %3; requests %4, errors %5, "
                          "expired %6, replayed %7; latency ms: mean %8, median %9, p95 %10, "
                          "max %11")
        .arg(health, started.toString(Qt::ISODate))
        .arg(connectCount)
        .arg(requestCount)
        .arg(errorCount)
        .arg(expiredCount)
        .arg(replayedCount)
        .arg(millis(requestCount ? totalMicros / requestCount : 0), millis(at(0.5)),
             millis(at(0.95)), millis(maxMicros));
}

} // namespace kesp
