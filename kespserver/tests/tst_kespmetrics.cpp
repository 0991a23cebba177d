// SPDX-License-Identifier: Apache-2.0
// The counters in the Prometheus text format: the latency histogram's
// cumulative buckets, the totals and the connection state.

#include "servercounters.h"

#include <QtTest>

class KespMetrics : public QObject
{
    Q_OBJECT

private slots:
    void histogram_data();
    void histogram();
    void connectionState();
};

void KespMetrics::histogram_data()
{
    QTest::addColumn<QList<qint64>>("micros");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("none") << QList<qint64> {}
                          << QStringList {
                                 "nuvkesp_request_duration_seconds_bucket{le=\"0.001\"} 0",
                                 "nuvkesp_request_duration_seconds_bucket{le=\"+Inf\"} 0",
                                 "nuvkesp_request_duration_seconds_sum 0.000000",
                                 "nuvkesp_requests_total 0"
                             };
    QTest::newRow("on a bound") << QList<qint64> { 1000, 1001 }
                                << QStringList {
                                       "nuvkesp_request_duration_seconds_bucket{le=\"0.001\"} 1",
                                       "nuvkesp_request_duration_seconds_bucket{le=\"0.0025\"} 2",
                                       "nuvkesp_request_duration_seconds_sum 0.002001",
                                       "nuvkesp_request_duration_seconds_count 2"
                                   };
    QTest::newRow("beyond the last bound")
        << QList<qint64> { 500, 30000000 }
        << QStringList { "nuvkesp_request_duration_seconds_bucket{le=\"10\"} 1",
                         "nuvkesp_request_duration_seconds_bucket{le=\"+Inf\"} 2",
                         "nuvkesp_requests_total 2" };
}

void KespMetrics::histogram()
{
    QFETCH(QList<qint64>, micros);
    QFETCH(QStringList, lines);
    kesp::ServerCounters counters;
    for (const qint64 each : micros)
        counters.answered(each, false, false);
    const QList<QByteArray> text = counters.prometheusText().split('\n');
    for (const QString &line : lines)
        QVERIFY2(text.contains(line.toUtf8()), qPrintable(line));
}

void KespMetrics::connectionState()
{
    kesp::ServerCounters counters;
    QVERIFY(counters.prometheusText().split('\n').contains("nuvkesp_broker_connected 0"));
    counters.connected(QStringLiteral("127.0.0.1:61613"));
    counters.answered(2000, true, false);
    counters.answered(2000, false, true);
    counters.expired();
    counters.databaseWork(3, 0);
    counters.databaseWork(5, 2);
    const QList<QByteArray> text = counters.prometheusText().split('\n');
    for (const char *line :
         { "nuvkesp_broker_connected 1", "nuvkesp_broker_connections_total 1",
           "nuvkesp_errors_total 1", "nuvkesp_replayed_total 1", "nuvkesp_expired_total 1",
           "nuvkesp_requests_total 2", "nuvkesp_database_round_trips_total 8",
           "nuvkesp_write_retries_total 2" })
        QVERIFY2(text.contains(line), line);
    counters.disconnected();
    QVERIFY(counters.prometheusText().split('\n').contains("nuvkesp_broker_connected 0"));
}

QTEST_GUILESS_MAIN(KespMetrics)
#include "tst_kespmetrics.moc"
