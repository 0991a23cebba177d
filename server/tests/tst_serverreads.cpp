// SPDX-License-Identifier: Apache-2.0
// What a request costs the database and the other callers: commands that
// change nothing run in a snapshot beside a writer instead of waiting for
// its lock, record nothing, and every request takes a known number of
// statements, each a round trip to a database on another host.

#include "dialect.h"
#include "protocolwords.h"
#include "servertestsupport.h"
#include "sql.h"
#include "transaction.h"

#include <QMutex>
#include <QSqlDatabase>
#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

using namespace servertest;
using nuvserver::Transaction;
namespace words = nuvprotocol::words;

class ServerReadsTest : public QObject
{
    Q_OBJECT

private slots:
    void readsGoOnBesideAWriter_data();
    void readsGoOnBesideAWriter();
    void onlyChangesAreRecorded_data();
    void onlyChangesAreRecorded();
    void roundTripsPerRequest_data();
    void roundTripsPerRequest();
    void enginesSideBySideGiveASerialResult_data();
    void enginesSideBySideGiveASerialResult();
    void changeLogIsFolded_data();
    void changeLogIsFolded();
};

void ServerReadsTest::readsGoOnBesideAWriter_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("data");
    QTest::addColumn<bool>("exclusiveWriter");
    QTest::addColumn<bool>("waitsOnSQLite");
    QTest::addColumn<bool>("waitsOnPostgres");
    for (const bool exclusive : { false, true }) {
        const char *beside = exclusive ? "beside an exclusive writer" : "beside a writer";
        QTest::addRow("getRoles %s", beside)
            << words::getRoles << QStringList() << exclusive << false << false;
        QTest::addRow("getArchives %s", beside)
            << words::getArchives << QStringList() << exclusive << false << false;
        QTest::addRow("loadUserData %s", beside)
            << words::loadUserData << QStringList { "key" } << exclusive << false << false;
    }
    // SQLite has one writer at a time; PostgreSQL lets writes run side by
    // side unless one of them runs exclusively.
    QTest::newRow("a write beside a writer")
        << words::addClipboard << QStringList { "Mine" } << false << true << false;
    QTest::newRow("a write beside an exclusive writer")
        << words::addClipboard << QStringList { "Mine" } << true << true << true;
}

void ServerReadsTest::readsGoOnBesideAWriter()
{
    QFETCH(QString, command);
    QFETCH(QStringList, data);
    QFETCH(bool, exclusiveWriter);
    QFETCH(bool, waitsOnSQLite);
    QFETCH(bool, waitsOnPostgres);
    TestServer server;
    const bool waits = server.isPostgres() ? waitsOnPostgres : waitsOnSQLite;
    nuvserver::EngineOptions options = server.options();
    // How long a request waits for the writer before it is refused: the
    // writer below never finishes while the request runs.
    options.busyTimeoutMs = 300;
    auto engine = server.engine(options);
    engineLogin(*engine, "token", adminUser, adminPassword);

    servertest::OwnConnection holder(server.database(), QStringLiteral("lock-holder"));
    QVERIFY2(holder.db.isValid(), qPrintable(holder.error));
    Transaction writer(holder.db,
                       exclusiveWriter ? Transaction::Kind::Exclusive : Transaction::Kind::Write);
    QVERIFY(writer.isActive());
    // The writer has written (an uncommitted row), as a write in progress.
    nuvserver::run(holder.db, QStringLiteral("UPDATE users SET email = email WHERE id = 1"));

    const nuvMQClassifyMessage reply = engine->handle(request(command, QString(), data), "token");
    if (waits) {
        QCOMPARE(reply.command, QString("ERROR"));
        QVERIFY2(reply.errorText.contains("busy"), qPrintable(reply.errorText));
    } else {
        QVERIFY2(reply.command == "OK", qPrintable(reply.errorText));
    }
}

void ServerReadsTest::onlyChangesAreRecorded_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("data");
    QTest::addColumn<bool>("recorded");
    QTest::newRow("a read") << words::getRoles << QStringList() << false;
    QTest::newRow("a write") << words::addClipboard << QStringList { "Mine" } << true;
    // Refused by the command, so nothing changed: nothing to repeat.
    QTest::newRow("a failed write") << words::addClipboard << QStringList() << false;
}

void ServerReadsTest::onlyChangesAreRecorded()
{
    QFETCH(QString, command);
    QFETCH(QStringList, data);
    QFETCH(bool, recorded);
    TestServer server;
    auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    bool replayed = true;
    const nuvMQClassifyMessage first
        = engine->handle(request(command, QString(), data), "token", "key-1", &replayed);
    QVERIFY(!replayed);
    QCOMPARE(server.inspect("SELECT count(*) FROM processed_requests").toInt(), recorded ? 1 : 0);
    const nuvMQClassifyMessage again
        = engine->handle(request(command, QString(), data), "token", "key-1", &replayed);
    QCOMPARE(replayed, recorded);
    QCOMPARE(again.command, first.command);
}

void ServerReadsTest::roundTripsPerRequest_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("data");
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("onSqlite");
    QTest::addColumn<int>("onPostgres");
    // A read: the statement that finds the session and the marker (on
    // PostgreSQL it also starts the snapshot), the command's own, COMMIT.
    // SQLite sends BEGIN on its own (a statement there is no round trip).
    QTest::newRow("getRoles") << words::getRoles << QStringList() << QString() << 4 << 3;
    QTest::newRow("getArchives") << words::getArchives << QStringList() << QString() << 4 << 3;
    QTest::newRow("loadUserData") << words::loadUserData << QStringList { "key" } << QString() << 4
                                  << 3;
    // A write: the first statement (on PostgreSQL before the transaction),
    // the command's two (addClipboard: is the name free, the insert; on
    // PostgreSQL the first with BEGIN and the shared write lock), the
    // change, COMMIT; with a request key the recorded reply too, on
    // PostgreSQL in the round trip of the COMMIT. SQLite sends BEGIN
    // IMMEDIATE on its own.
    QTest::newRow("addClipboard") << words::addClipboard << QStringList { "Mine" } << QString() << 6
                                  << 5;
    QTest::newRow("addClipboard, keyed")
        << words::addClipboard << QStringList { "Mine" } << "key-1" << 7 << 5;
}

void ServerReadsTest::roundTripsPerRequest()
{
    QFETCH(QString, command);
    QFETCH(QStringList, data);
    QFETCH(QString, key);
    QFETCH(int, onSqlite);
    QFETCH(int, onPostgres);
    TestServer server;
    auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    const nuvMQClassifyMessage reply
        = engine->handle(request(command, QString(), data), "token", key);
    QVERIFY2(reply.command == "OK", qPrintable(reply.errorText));
    QCOMPARE(engine->lastRequestCounters().roundTrips, server.isPostgres() ? onPostgres : onSqlite);
}

void ServerReadsTest::enginesSideBySideGiveASerialResult_data()
{
    QTest::addColumn<int>("writers");
    QTest::addColumn<int>("readers");
    QTest::newRow("two writers") << 2 << 0;
    QTest::newRow("two writers, two readers") << 2 << 2;
    QTest::newRow("four writers, four readers") << 4 << 4;
}

// Engines of one process, each on a thread and a connection of its own (as
// the workers of one daemon): every write gets a change of its own, as if
// they had run one after another, and the reads beside them all succeed.
void ServerReadsTest::enginesSideBySideGiveASerialResult()
{
    QFETCH(int, writers);
    QFETCH(int, readers);
    constexpr int requestsEach = 10;
    TestServer server;
    const nuvserver::EngineOptions options = server.options();
    engineLogin(*server.engine(options), "token", adminUser, adminPassword);
    const qint64 before = server.inspect("SELECT max(number) FROM changes").toLongLong();

    std::atomic<int> readsAnswered { 0 };
    QMutex guard;
    QStringList failures;
    QStringList markers;
    const auto work = [&](const QString &command, int worker) {
        nuvserver::ServerEngine engine(options);
        QString error;
        if (!engine.open(&error)) {
            const QMutexLocker locker(&guard);
            failures.append(error);
            return;
        }
        for (int i = 0; i < requestsEach; ++i) {
            const QStringList data = command == words::addClipboard
                ? QStringList { QString("worker %1, %2").arg(worker).arg(i) }
                : QStringList();
            const nuvMQClassifyMessage reply
                = engine.handle(request(command, QString(), data), "token");
            const QMutexLocker locker(&guard);
            if (reply.command != "OK")
                failures.append(reply.errorText);
            else if (command == words::addClipboard)
                markers.append(reply.getUpdateString());
            else
                ++readsAnswered;
        }
    };
    std::vector<std::thread> threads;
    for (int w = 0; w < writers; ++w)
        threads.emplace_back(work, QString(words::addClipboard), w);
    for (int r = 0; r < readers; ++r)
        threads.emplace_back(work, QString(words::getRoles), r);
    for (std::thread &thread : threads)
        thread.join();

    QVERIFY2(failures.isEmpty(), qPrintable(failures.join("; ")));
    QCOMPARE(readsAnswered.load(), readers * requestsEach);
    const int writes = writers * requestsEach;
    QCOMPARE(server.inspect("SELECT count(*) FROM clipboards").toInt(), writes);
    // One change each, and the markers the writers got are exactly the
    // numbers of those changes. (On PostgreSQL a write that lost a race at
    // its commit leaves a gap in the numbers, so they need not follow one
    // another.)
    QCOMPARE(server.inspect(QString("SELECT count(*) FROM changes WHERE number > %1").arg(before))
                 .toInt(),
             writes);
    QSet<qint64> counters;
    for (const QString &marker : qAsConst(markers))
        counters.insert(marker.section(':', -1).toLongLong());
    QCOMPARE(counters.size(), writes);
    QStringList numbers;
    for (const qint64 value : qAsConst(counters))
        numbers.append(QString::number(value));
    QCOMPARE(server
                 .inspect(QString("SELECT count(*) FROM changes WHERE number > %1"
                                  " AND number IN (%2)")
                              .arg(before)
                              .arg(numbers.join(',')))
                 .toInt(),
             writes);
}

void ServerReadsTest::changeLogIsFolded_data()
{
    QTest::addColumn<qint64>("lastBefore");
    QTest::addColumn<qint64>("oldestKept");
    // Only every thousandth change folds the log, keeping 10,000 changes
    // (the new database's own history starts at change 0).
    QTest::newRow("the 20,999th change") << qint64(20998) << qint64(0);
    QTest::newRow("the 21,000th change") << qint64(20999) << qint64(11001);
}

void ServerReadsTest::changeLogIsFolded()
{
    QFETCH(qint64, lastBefore);
    QFETCH(qint64, oldestKept);
    TestServer server;
    const auto engine = server.engine();
    engineLogin(*engine, "token", adminUser, adminPassword);
    // A long history, as if that many writes had been made.
    servertest::OwnConnection history(server.database(), QStringLiteral("history"));
    QVERIFY2(history.db.isValid(), qPrintable(history.error));
    nuvserver::run(history.db,
                   QString("WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n"
                           " WHERE x < %1) INSERT INTO changes(number, time)"
                           " SELECT x, '2026-01-01 00:00:00' FROM n"
                           " WHERE x > (SELECT max(number) FROM changes)")
                       .arg(lastBefore));
    if (server.isPostgres())
        nuvserver::run(history.db,
                       QString("SELECT setval(pg_get_serial_sequence('changes', 'number'), %1)")
                           .arg(lastBefore));

    nuvMQClassifyMessage sent = request(words::addClipboard, QString(), { "Mine" });
    const nuvMQClassifyMessage reply = engine->handle(sent, "token");
    QVERIFY2(reply.command == "OK", qPrintable(reply.errorText));
    QCOMPARE(reply.getUpdateString().section(':', -1).toLongLong(), lastBefore + 1);
    QCOMPARE(server.inspect("SELECT min(number) FROM changes").toLongLong(), oldestKept);
    QCOMPARE(server.inspect("SELECT max(number) FROM changes").toLongLong(), lastBefore + 1);
    // The marker the caller holds is still the current one.
    sent = request(words::getRoles);
    sent.setUpdateString(reply.getUpdateString());
    const nuvMQClassifyMessage next = engine->handle(sent, "token");
    QCOMPARE(next.getUpdateString(), reply.getUpdateString());
    QVERIFY(!next.getUpdateRequested());
}

QTEST_GUILESS_MAIN(ServerReadsTest)
#include "tst_serverreads.moc"
