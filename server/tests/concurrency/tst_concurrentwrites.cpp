// SPDX-License-Identifier: Apache-2.0
// Several engines on one database, each with its own connection and called
// from a thread of its own, take conflicting writes at the same moment. The
// database must end as some serial order of those requests would leave it
// (conflictburst.h says what that means for each scenario).

#include "conflictburst.h"
#include "dialect.h"
#include "protocolwords.h"
#include "servertestsupport.h"
#include "sql.h"
#include "transaction.h"

#include <QtTest>

#include <memory>
#include <thread>
#include <vector>

using conflicts::Scenario;

Q_DECLARE_METATYPE(conflicts::Scenario)

class ConcurrentWritesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void conflictingWrites_data();
    void conflictingWrites();
    void lostRaceRunsAgain_data();
    void lostRaceRunsAgain();
};

namespace {
QString tokenOf(int caller)
{
    return QStringLiteral("%1").arg(caller + 1, 32, 16, QLatin1Char('0'));
}
} // namespace

void ConcurrentWritesTest::conflictingWrites_data()
{
    QTest::addColumn<Scenario>("scenario");
    QTest::addColumn<int>("callers");
    QTest::addColumn<int>("rounds");
    for (const Scenario scenario :
         { Scenario::NewIds, Scenario::SameClipboardName, Scenario::CardsOnOneClipboard,
           Scenario::SameUserName, Scenario::FolderTree, Scenario::OneDocument }) {
        QTest::newRow(qPrintable(conflicts::scenarioName(scenario))) << scenario << 8 << 4;
    }
}

void ConcurrentWritesTest::conflictingWrites()
{
    QFETCH(Scenario, scenario);
    QFETCH(int, callers);
    QFETCH(int, rounds);
    servertest::TestServer server;
    conflicts::Burst burst;
    burst.scenario = scenario;
    burst.callers = callers;
    burst.rounds = rounds;
    burst.database = server.database();
    burst.replies.fill(QVector<nuvMQClassifyMessage>(rounds), callers);

    const QString adminToken = QStringLiteral("a").repeated(32);
    const std::unique_ptr<nuvserver::ServerEngine> admin = server.engine();
    servertest::engineLogin(*admin, adminToken, servertest::adminUser, servertest::adminPassword);
    const QString problem = burst.prepare(
        [&](const nuvMQClassifyMessage &request) { return admin->handle(request, adminToken); });
    QVERIFY2(problem.isEmpty(), qPrintable(problem));

    std::vector<std::unique_ptr<nuvserver::ServerEngine>> engines;
    for (int caller = 0; caller < callers; ++caller)
        engines.push_back(server.engine());
    conflicts::runTogether(
        callers,
        [&](int caller) {
            servertest::engineLogin(*engines[caller], tokenOf(caller), servertest::adminUser,
                                    servertest::adminPassword);
        },
        [&] { burst.start(); },
        [&](int caller) {
            QVector<nuvMQClassifyMessage> &mine = burst.replies[caller];
            for (int round = 0; round < rounds; ++round)
                mine[round]
                    = engines[caller]->handle(burst.request(caller, round), tokenOf(caller));
        });

    const QStringList broken = burst.check();
    QVERIFY2(broken.isEmpty(), qPrintable(broken.join(QLatin1Char('\n'))));
}

void ConcurrentWritesTest::lostRaceRunsAgain_data()
{
    QTest::addColumn<QString>("rivalStatement");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expectedError");
    QTest::addColumn<QString>("expectedNames");
    // The rival renames the clipboard first: the request's rename comes
    // after it in the serial order, and its name is the one that stays.
    QTest::newRow("the same clipboard renamed")
        << "UPDATE clipboards SET name = 'Rival' WHERE name = 'Shared'"
        << QString(nuvprotocol::words::renameClipboard) << "Mine" << QString() << "Mine";
    // The rival takes the name first: run again, the request sees it and is
    // refused as it would be one after the other.
    QTest::newRow("the same new clipboard name")
        << "INSERT INTO clipboards(owner_id, name, created)"
           " SELECT id, 'Taken', '2026-01-01 00:00:00' FROM users WHERE login = 'admin'"
        << QString(nuvprotocol::words::addClipboard) << "Taken"
        << "CFADDCLIPBOARD: admin already has a clipboard 'Taken'"
        << "Shared,Taken";
}

// A request that loses a race with a concurrent write is run again inside
// the server: the caller sees the reply of a serial order, never the
// conflict. On PostgreSQL the request runs beside the rival and is retried
// once; SQLite's one writer makes it wait for the rival instead.
void ConcurrentWritesTest::lostRaceRunsAgain()
{
    QFETCH(QString, rivalStatement);
    QFETCH(QString, command);
    QFETCH(QString, name);
    QFETCH(QString, expectedError);
    QFETCH(QString, expectedNames);
    servertest::TestServer server;
    const QString token = QStringLiteral("b").repeated(32);
    const std::unique_ptr<nuvserver::ServerEngine> engine = server.engine();
    servertest::engineLogin(*engine, token, servertest::adminUser, servertest::adminPassword);
    const nuvMQClassifyMessage made = engine->handle(
        servertest::request(nuvprotocol::words::addClipboard, QString(), { "Shared" }), token);
    QVERIFY2(made.command == "OK", qPrintable(made.errorText));
    const QString clipboard = made.getDocId();

    // The caller's thread opens its connection first (the engine opens one
    // per thread), so that the race is the request's alone.
    QSemaphore opened;
    QSemaphore go;
    nuvMQClassifyMessage reply;
    std::thread caller([&] {
        engine->handle(servertest::request(nuvprotocol::words::getRoles), token);
        opened.release();
        go.acquire();
        reply = engine->handle(servertest::request(command, clipboard, { name }), token);
    });
    opened.acquire();

    servertest::OwnConnection rival(server.database(), QStringLiteral("rival"));
    QVERIFY2(rival.db.isValid(), qPrintable(rival.error));
    std::optional<nuvserver::Transaction> rivalWrite;
    rivalWrite.emplace(rival.db, nuvserver::Transaction::Kind::Write);
    QVERIFY(rivalWrite->isActive());
    nuvserver::run(rival.db, rivalStatement);
    go.release();
    if (server.isPostgres()) {
        // The request has done its work up to the rival's row and waits
        // for the rival's transaction to end: they run side by side.
        // (Asked on a connection of its own: a transaction sees the
        // activity as it was when it first looked.)
        QTRY_VERIFY_WITH_TIMEOUT(server.inspect("SELECT count(*) FROM pg_stat_activity"
                                                " WHERE datname = current_database()"
                                                " AND wait_event = 'transactionid'")
                                         .toInt()
                                     == 1,
                                 10000);
    }
    QVERIFY(rivalWrite->commit());
    caller.join();

    if (expectedError.isEmpty())
        QVERIFY2(reply.command == "OK", qPrintable(reply.errorText));
    else
        QCOMPARE(reply.errorText, expectedError);
    QCOMPARE(engine->lastRequestCounters().retries, server.isPostgres() ? 1 : 0);
    QCOMPARE(server
                 .inspect(server.isPostgres()
                              ? "SELECT string_agg(name, ',' ORDER BY name) FROM clipboards"
                              : "SELECT group_concat(name, ',') FROM"
                                " (SELECT name FROM clipboards ORDER BY name)")
                 .toString(),
             expectedNames);
}

QTEST_GUILESS_MAIN(ConcurrentWritesTest)
#include "tst_concurrentwrites.moc"
